#include "web_config.h"

#include <fmt/format.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <set>
#include <stdexcept>
#include <string_view>

#include "auth.h"
#include "monitor/mapping_file.h"

namespace exporter {

namespace {

class Reader {
public:
    explicit Reader(std::string file) : path(std::move(file)) {
    }

    WebConfig read(const YAML::Node& root) const {
        WebConfig config;
        checkKeys(root, {"tls_server_config", "http_server_config", "basic_auth_users"});
        if (const YAML::Node tls = root["tls_server_config"]) {
            config.tls = readTls(tls);
        }
        if (const YAML::Node http = root["http_server_config"]) {
            checkKeys(http, {"headers"});
            if (const YAML::Node headers = http["headers"]) {
                config.headers = readHeaders(headers);
            }
        }
        if (const YAML::Node users = root["basic_auth_users"]) {
            if (!users.IsMap()) {
                complain(users, "expected names of users, with a bcrypt hash each");
            }
            checkNames(users);
            for (const auto& entry : users) {
                const std::string hash = text(entry.second);
                if (!isBcryptHash(hash)) {
                    complain(entry.second, "expected a bcrypt hash, as 'htpasswd -nBC 10 USER' makes it");
                }
                config.users[text(entry.first)] = hash;
            }
        }
        return config;
    }

private:
    [[noreturn]] void complain(const YAML::Node& at, const std::string& what) const {
        throw std::runtime_error(fmt::format("{}:{}:{}: {}", path, at.Mark().line + 1, at.Mark().column + 1, what));
    }
    std::string text(const YAML::Node& at) const {
        if (!at.IsScalar()) {
            complain(at, "expected a text");
        }
        return at.Scalar();
    }
    // None is there twice.
    void checkNames(const YAML::Node& at) const {
        std::set<std::string> seen;
        for (const auto& entry : at) {
            if (!seen.insert(text(entry.first)).second) {
                complain(entry.first, fmt::format("'{}' is there twice", entry.first.Scalar()));
            }
        }
    }
    void checkKeys(const YAML::Node& at, std::initializer_list<std::string_view> keys) const {
        if (!at.IsMap() && !at.IsNull()) {
            complain(at, fmt::format("expected {}, a colon behind each", fmt::join(keys, ", ")));
        }
        checkNames(at);
        for (const auto& entry : at) {
            if (std::find(keys.begin(), keys.end(), text(entry.first)) == keys.end()) {
                complain(entry.first,
                         fmt::format("unknown key '{}', expected {}", entry.first.Scalar(), fmt::join(keys, ", ")));
            }
        }
    }
    Headers readHeaders(const YAML::Node& at) const {
        checkKeys(at, {"Content-Security-Policy", "Strict-Transport-Security", "X-Content-Type-Options",
                       "X-Frame-Options", "X-XSS-Protection"});
        Headers headers;
        for (const auto& entry : at) {
            const std::string value = text(entry.second);
            if (value.empty() || std::any_of(value.begin(), value.end(), [](char c) { return c < ' ' || c > '~'; })) {
                complain(entry.second, "expected a header's text: one line of ASCII");
            }
            headers.emplace_back(entry.first.Scalar(), value);
        }
        return headers;
    }
    int version(const YAML::Node& at) const {
        const std::string word = text(at);
        for (const int number : {0, 1, 2, 3}) {
            if (word == fmt::format("TLS1{}", number)) {
                return number;
            }
        }
        complain(at, "expected TLS10, TLS11, TLS12 or TLS13");
    }
    std::shared_ptr<const Tls> readTls(const YAML::Node& at) const {
        checkKeys(at, {"cert_file", "key_file", "client_ca_file", "client_auth_type", "min_version", "max_version"});
        const auto file = [&](const char* key) {
            const std::filesystem::path name = text(at[key]);
            return monitor::contentOf((std::filesystem::path(path).parent_path() / name).string());
        };
        if (!at["cert_file"] || !at["key_file"]) {
            complain(at, "expected the keys cert_file and key_file");
        }
        TlsSettings tls;
        tls.certificate = file("cert_file");
        tls.key = file("key_file");
        if (at["client_ca_file"]) {
            tls.clientAuthority = file("client_ca_file");
        }
        const std::string wanted = at["client_auth_type"] ? text(at["client_auth_type"]) : "NoClientCert";
        if (wanted != "NoClientCert" && wanted != "VerifyClientCertIfGiven" && wanted != "RequireAndVerifyClientCert") {
            complain(at["client_auth_type"],
                     "expected NoClientCert, VerifyClientCertIfGiven or RequireAndVerifyClientCert");
        }
        if ((wanted == "NoClientCert") != tls.clientAuthority.empty()) {
            complain(at, "client_ca_file and a client_auth_type that verifies go together");
        }
        tls.clientRequired = wanted == "RequireAndVerifyClientCert";
        if (at["min_version"]) {
            tls.least = version(at["min_version"]);
        }
        if (at["max_version"]) {
            tls.most = version(at["max_version"]);
        }
        if (tls.least > tls.most) {
            complain(at, "min_version, which is TLS12 by itself, is above max_version");
        }
        try {
            return std::make_shared<const Tls>(std::move(tls));
        } catch (const std::runtime_error& error) {
            complain(at, error.what());
        }
    }

    std::string path;
};

}  // namespace

WebConfig readWebConfig(const std::string& path) {
    const std::string text = monitor::contentOf(path);
    try {
        return Reader(path).read(YAML::Load(text));
    } catch (const YAML::Exception& error) {
        throw std::runtime_error(
            fmt::format("{}:{}:{}: {}", path, error.mark.line + 1, error.mark.column + 1, error.msg));
    }
}

}  // namespace exporter
