// The file of --map.
#pragma once

#include <memory>
#include <string>

#include "monitor/mapping.h"

namespace zulstat {

// Throws UsageError for a file or a module that is not there or not right.
std::shared_ptr<monitor::Mapper> readMapper(const std::string& path, const std::string& module);

}  // namespace zulstat
