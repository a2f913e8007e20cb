// The file of --web.config.file: TLS, headers and users. YAML.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "http.h"

namespace exporter {

struct WebConfig {
    std::shared_ptr<const Tls> tls;  // nothing: there is none
    Headers headers;
    std::map<std::string, std::string> users;  // names and bcrypt hashes
};

// Names of files count from the file's own directory. Throws std::runtime_error, with file, line and column.
WebConfig readWebConfig(const std::string& path);

}  // namespace exporter
