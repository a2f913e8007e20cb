// Messages on standard error, and exit codes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "monitor/failure.h"
#include "monitor/sample.h"

namespace zulstat {

enum ExitCode {
    exitOk = 0,
    exitPartly = 1,  // some query elements failed, or nothing matched
    exitUsage = 2,
    exitCannotConnect = 3,
    exitDeadline = 4,
    exitLost = 5,  // the connection, or the request, by the Gateway
    exitInternal = 6,
    exitInterrupted = 130,
};

// What messages are about, and how much of them is wanted.
struct Subject {
    monitor::Target target;
    double timeout = 5;    // seconds, as given
    bool several = false;  // Gateways: messages name this one
    bool series = false;   // watch, top
    bool ping = false;
    bool filtered = false;  // by -I and -X
    bool quiet = false;
    bool verbose = false;
};

int exitCodeFor(const monitor::Failure& failure);

// One line without "zulstat: " and line end, and what to do about it (empty where nothing helps). Neither has odd
// bytes.
std::string failureText(const monitor::Failure& failure, const Subject& subject);
std::string hintFor(const monitor::Failure& failure, const monitor::Query& query, const Subject& subject);

// "zulstat: TEXT\n" on standard error, unless a signal comes while that takes nothing; note() not with -q, detail()
// only with -v.
void complain(std::string_view text);
void note(const Subject& subject, std::string_view text);
void detail(const Subject& subject, std::string_view text);

// complain() with the failure and its hint; returns its exit code. An interruption is no message.
int reportFailure(const monitor::Failure& failure, const monitor::Query& query, const Subject& subject);

// For detail(), and the size for ping: "5656 of 32767 bytes (17 %)".
std::string sampleDetails(const monitor::Sample& sample);
std::string sizeText(const monitor::Sample& sample);
double milliseconds(double seconds);

// note() of a close request without an answer.
void noteClosing(const monitor::Failure& failure, const Subject& subject);

// What came of one Gateway.
struct Result {
    Subject subject;
    const monitor::Sample* sample = nullptr;  // nothing: it gave no answer, which was said
    std::vector<std::string> known = {};      // what there is in place of failed elements, where that was asked for
};
// The summary in one line, of failed elements, of Gateways without an answer and of nothing matched, with a hint; and
// the exit code: exitOk or exitPartly, whatever came of those without an answer.
int reportSamples(const std::vector<Result>& results);
int reportSample(const monitor::Sample& sample, const Subject& subject);

}  // namespace zulstat
