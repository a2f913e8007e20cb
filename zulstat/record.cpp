// zulstat record.
#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>

#include "commands.h"
#include "feed.h"
#include "monitor/codes.h"
#include "options.h"
#include "output.h"
#include "recording/writer.h"
#include "report.h"
#include "series.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

class Record : public Series {
public:
    explicit Record(const Options& given)
        : Series(given, gatewayFeeds(given, true)),
          writer(
              {.file = given.file, .rotation = given.rotation, .keep = given.keep, .tell = [](const std::string& text) {
                   complain(escapeForTerminal(text));
               }}) {
    }

    int record() {
        if (writer.continues()) {
            for (const Target& target : options.targets) {
                writer.addGap(target, clockSeconds(CLOCK_REALTIME), clockSeconds(CLOCK_MONOTONIC), RC_CONNECTION_LOST,
                              "the recording was not running");
            }
        }
        return run();
    }

private:
    void take(std::size_t index, FeedEvent& event) override {
        const Subject& subject = all[index].subject;
        if (event.lost) {
            note(subject,
                 fmt::format("connected to {} again after {:.1f} s", escapeForTerminal(targetText(subject.target)),
                             std::chrono::duration<double>(*event.lost).count()));
        }
        filter(event.sample, options.globs);
        writer.add(event.sample);
        detail(subject, sampleDetails(event.sample));
    }

    void lose(std::size_t index, const FeedEvent& event) override {
        if (!event.firstGap) {
            return;
        }
        const Subject& subject = all[index].subject;
        complain(event.text + "; trying again");
        writer.addGap(subject.target, event.wallTime, event.monotonicTime, event.rc,
                      describeFailure(*event.failure, subject.target, std::chrono::duration<double>(subject.timeout)));
    }

    void end(std::size_t, const FeedEvent&) override {
    }

    recording::Writer writer;
};

}  // namespace

int runRecord(const Options& options) {
    std::signal(SIGXFSZ, SIG_IGN);  // a file that has grown as large as it may is one that takes no more
    try {
        return Record(options).record();
    } catch (const std::runtime_error& error) {
        complain(escapeForTerminal(error.what()));
        return exitInternal;
    } catch (const Interrupted&) {
        return exitOk;
    }
}

}  // namespace zulstat
