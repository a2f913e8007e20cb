#include "map_file.h"

#include "usage_error.h"
#ifdef ZULSTAT_MAPPING
#include "monitor/mapping_file.h"
#endif

namespace zulstat {

using namespace monitor;

std::shared_ptr<Mapper> readMapper(const std::string& path, const std::string& module) {
#ifdef ZULSTAT_MAPPING
    try {
        const MappingFile file = readMappingFile(path);
        const auto found = file.modules.find(module);
        if (found == file.modules.end()) {
            throw UsageError{path + " has no module '" + module + "'"};
        }
        return std::make_shared<Mapper>(found->second);
    } catch (const MappingFileError& error) {
        throw UsageError{error.what()};
    }
#else
    throw UsageError{"--map is not in this program, which was built without yaml-cpp: " + path + ", " + module};
#endif
}

}  // namespace zulstat
