// Recordings as the options choose from them.
#pragma once

#include <optional>
#include <string>
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
// pipes at the end, between --at and --to. Says on standard error what was passed over. Throws UsageError for what cannot be read, and Interrupted when a signal came.
std::vector<PageFile> readTimelines(const std::vector<std::string>& files, const Options& options, Timelines& lines);

// What each Gateway of a recording had at a moment, or at its end without one, chosen from. Throws as the above.
std::vector<monitor::Sample> readMoment(const std::string& file, const std::optional<recording::TimeWord>& time,
                                        const Options& options);

}  // namespace zulstat
