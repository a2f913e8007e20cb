// The trace of a conversation, compared with a file of the source tree.
#pragma once

#include "support/fixture.h"
#include "support/temp_directory.h"

#include "simgateway/sim_gateway.h"
#include "zulstats.h"

namespace golden {

// What of a trace is compared.
enum class Keep {
    WITHOUT_LOCKS,  // all but the lock wrapper's lines
    ALL,
    POINTS  // trace points only: no dumps, banners and lists, and no lock lines
};

// Compares with the golden file `name`, or writes it where the environment variable ZULSTATS_UPDATE_GOLDEN is set.
// `directory` and `port` differ from run to run and have no place in a golden file. Where ZULSTATS_TEST_TRACE_DIR names
// a directory, the trace as it is goes there too.
void compare(const std::string& name, const std::string& trace, Keep keep, const std::string& directory, int port);

// Directs the trace to a file while it lives, then compares.
class Recording {
public:
    Recording(std::string goldenName, int level, const simgateway::Server& server, Keep keep = Keep::WITHOUT_LOCKS);
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    [[nodiscard]] std::string file(const std::string& fileName) const {
        return directory.file(fileName);
    }

private:
    const support::TempDirectory directory;
    const std::string name;
    const Keep keep;
    const int port;
};

// With a small Gateway, whose values never change.
class Conversation : public support::QuietTest {
protected:
    // A connection that stays open.
    GatewayToken* open() const {
        return support::openConnection(server.port());
    }

    simgateway::Server server{{.seed = 7, .stats = 12}};
};

}  // namespace golden
