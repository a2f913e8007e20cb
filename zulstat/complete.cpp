// zulstat complete: words for the completions of shells.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include "asking.h"
#include "commands.h"
#include "options.h"
#include "output.h"
#include "report.h"
#include "waiting.h"

namespace zulstat {

using namespace monitor;

namespace {

namespace fs = std::filesystem;

constexpr double LONGEST_WAIT = 0.5;  // seconds
constexpr auto FRESH = std::chrono::seconds(60);

// Shells take such words as they are: nothing in them is obeyed or ends a word.
bool isPlain(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 ||
                            std::string_view("._-/+%,@").find(static_cast<char>(c)) != std::string_view::npos);
    });
}

// Empty where there is no place for it.
fs::path cacheFile(const Options& options) {
    const auto directory = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value != nullptr && *value == '/' ? value : "");
    };
    const std::string cache = directory("XDG_CACHE_HOME");
    const std::string home = directory("HOME");
    if (cache.empty() && home.empty()) {
        return {};
    }
    std::string name = options.completed;
    for (const Target& target : options.targets) {
        name += "_" + targetText(target);
    }
    constexpr std::size_t longestName = 200;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c != ':' && !isPlain(std::string_view(&c, 1)); }, '_');
    std::replace(name.begin(), name.end(), '/', '_');
    return fs::path(cache.empty() ? home + "/.cache" : cache) / "zulstat" / name.substr(0, longestName);
}

std::optional<std::string> readCache(const fs::path& file, bool anyAge) {
    std::error_code error;
    const auto written = fs::last_write_time(file, error);
    if (error || (!anyAge && fs::file_time_type::clock::now() - written > FRESH)) {
        return std::nullopt;
    }
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// What cannot be kept is asked for again.
void writeCache(const fs::path& file, const std::string& text) {
    std::error_code ignored;
    fs::create_directories(file.parent_path().parent_path(), ignored);
    mkdir(file.parent_path().c_str(), S_IRWXU);
    const fs::path fresh = file.string() + "." + std::to_string(getpid());
    if (std::ofstream(fresh, std::ios::binary) << text << std::flush) {
        fs::rename(fresh, file, ignored);
    } else {
        fs::remove(fresh, ignored);
    }
}

// One word a line; nothing where no Gateway answers in time.
std::optional<std::string> ask(const Options& given) {
    Options options = given;
    options.command = given.completed == "groups" ? Command::groups : Command::ids;
    options.quiet = true;
    options.globs = {};
    options.timeout = std::min(given.timeout, LONGEST_WAIT);
    const Clock::time_point deadline = Clock::now() + options.timeoutMs();
    std::deque<Asking> all;
    for (const Target& target : options.targets) {
        all.emplace_back(options, target, deadline);
    }
    if (!stepUntil(all, [](const Asking& one) { return one.answered(); })) {
        return std::nullopt;
    }
    std::set<std::string> words;
    bool any = false;
    for (const Asking& one : all) {
        any = any || !one.failure;
        for (const Item& item : one.sample.items) {
            if (isPlain(item.id)) {
                words.emplace(item.id);
            }
        }
    }
    std::string text;
    for (const std::string& word : words) {
        text += word + "\n";
    }
    return any ? std::optional(text) : std::nullopt;
}

}  // namespace

int runComplete(const Options& options) {
    if (options.completed == "targets" || options.completed == "selections") {
        for (const InForce& one : options.inForce) {
            if (one.kind + "s" == options.completed && isPlain(one.name)) {
                print(one.name + "\n");
            }
        }
        return exitOk;
    }
    const fs::path file = cacheFile(options);
    std::optional<std::string> text = readCache(file, false);
    if (!text) {
        text = ask(options);
        if (text && !file.empty()) {
            writeCache(file, *text);
        }
    }
    print(text ? *text : readCache(file, true).value_or(""));
    return exitOk;
}

}  // namespace zulstat
