// Recordings as the options choose from them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "monitor/sample.h"
#include "options.h"
#include "page.h"
#include "recording/time.h"
#include "timeline.h"

namespace zulstat {

// Leaves of a sample what identifiers, groups, -I and -X choose; identifiers may be globs.
void choose(monitor::Sample& sample, const Options& options);

// Fills timelines from recordings, one behind the other in the order of their first times, those that are no files but
// pipes at the end, between --at and --to. Says on standard error what was passed over. Throws UsageError for what
// cannot be read, and Interrupted when a signal came.
std::vector<PageFile> readTimelines(const std::vector<std::string>& files, const Options& options, Timelines& lines);

// What each Gateway of a recording had at a moment, or at its end without one, chosen from. Throws as the above, and
// UsageError for a moment before the whole recording.
std::vector<monitor::Sample> readMoment(const std::string& file, const std::optional<recording::TimeWord>& time,
                                        const Options& options);
// The same of --from at --at and at --to. Throws UsageError too where --to is the earlier one.
std::pair<std::vector<monitor::Sample>, std::vector<monitor::Sample>> readMoments(const Options& options);

inline constexpr std::string_view NOTHING_MATCHES = "nothing matches what is asked for";
// Says on standard error why timelines have nothing to show.
void complainOfNothing(const Timelines& lines);
// Notes on standard error what timelines had no room for.
void noteLeft(const Timelines& lines, const Options& options);

}  // namespace zulstat
