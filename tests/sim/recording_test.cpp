// Recordings: which scene holds when, and what is wrong with a file.
#include <fstream>
#include <system_error>
#include <thread>

#include "program.h"
#include "raw_client.h"
#include "recording.h"
#include "simgateway/model.h"
#include "support/temp_directory.h"
#include "walk.h"

namespace simtest {
namespace {

using simgateway::Scene;

constexpr double FOR_EVER = std::numeric_limits<double>::infinity();

// A line as zulstat writes it.
std::string sample(double monotonic, const std::string& elements, const std::string& protocol = "1_0_0_0",
                   const std::string& what = "stats", const std::string& host = "127.0.0.1",
                   const std::string& wall = "1795266955.02") {
    return R"({"schema":"zulstat/1","target":{"host":")" + host + R"(","port":7531},"protocol":")" + protocol +
           R"(","query":{"what":")" + what + R"(","ids":[]},"time":"2026-11-21T13:15:55.024Z","wall":)" + wall +
           R"(,"monotonic":)" + std::to_string(monotonic) + R"(,"open_seconds":0.1,"query_seconds":0.1,)" +
           R"("fresh_connection":false,"size":64,"elements":[)" + elements + "]}\n";
}

std::string element(const std::string& text, const std::string& items, int rc = 0) {
    return R"({"element":")" + text + R"(","rc":)" + std::to_string(rc) + R"(,"items":[)" + items + "]}";
}

std::string item(const std::string& id, const std::string& value) {
    return R"({"id":")" + id + R"(","value":")" + value + R"(","number":1})";
}

const std::string gap = element("", "", -102);

class Recording : public testing::Test {
protected:
    void write(const std::string& lines) const {
        std::ofstream(file, std::ios::binary) << lines;
    }

    const TempDirectory directory;
    const std::string file = directory.file("recording");
};

TEST_F(Recording, servesItsSamplesOnTheirClock) {
    const auto host = [](const std::string& value) { return element("host", item("host.a", value)); };
    const std::string next = sample(120, host("five"));
    // What a recorder that was killed leaves of a line is passed over.
    write(sample(100, host("one") + "," + element("nosuch", "", -7)) + "\n" + next.substr(0, 100) + "\n" +
          sample(101.5, host("two")) + sample(103, gap, "") + sample(110, host("three"), "2_0_0_0") +
          sample(112, host("four")) + next.substr(0, next.size() - 2));
    const struct {
        bool loops;
        double time;
        std::string answer;    // empty: none
        std::string protocol;  // its version
        double until;
    } cases[] = {
        {false, 0, "one host/1 nosuch(-7)/0 ", "1_0_0_0", 3},
        {false, 1.49, "one host/1 nosuch(-7)/0 ", "1_0_0_0", 3},
        {false, 1.5, "two host/1 nosuch(-1)/0 ", "1_0_0_0", 3},
        {false, 2.99, "two host/1 nosuch(-1)/0 ", "1_0_0_0", 3},
        {false, 3, "", "", 10},
        {false, 9.99, "", "", 10},
        {false, 10, "three host/1 nosuch(-1)/0 ", "2_0_0_0", FOR_EVER},
        {false, 12, "four host/1 nosuch(-1)/0 ", "1_0_0_0", FOR_EVER},
        {false, 1e10, "four host/1 nosuch(-1)/0 ", "1_0_0_0", FOR_EVER},
        {true, 0, "one host/1 nosuch(-7)/0 ", "1_0_0_0", 3},
        {true, 13.99, "four host/1 nosuch(-1)/0 ", "1_0_0_0", 14},
        {true, 14, "one host/1 nosuch(-7)/0 ", "1_0_0_0", 17},
        {true, 31, "", "", 38},
        {true, 14e8 + 10, "three host/1 nosuch(-1)/0 ", "2_0_0_0", 14e8 + 14},
    };
    for (const auto& expected : cases) {
        std::uint64_t passedOver = 0;
        const auto scenes = zulstatsim::readRecording(file, expected.loops, &passedOver);
        EXPECT_EQ(passedOver, 2U);
        const Scene scene = scenes(expected.time);
        EXPECT_EQ(scene.until, expected.until) << expected.time;
        EXPECT_EQ(scene.protocolVersion, expected.protocol) << expected.time;
        ASSERT_EQ(scene.model != nullptr, !expected.answer.empty()) << expected.time;
        if (scene.model != nullptr) {
            const Walked answer = walked(scene.model->stats("host:nosuch", scene.moment).bytes());
            EXPECT_EQ(answer.lastValue + " " + answer.summary, expected.answer) << expected.time;
        }
    }
}

// Time goes on by wall where that by monotonic goes back.
TEST_F(Recording, goesOnAfterARestartOfTheMachineThatRecorded) {
    const auto host = [](const std::string& value, double monotonic, const std::string& wall) {
        return sample(monotonic, element("host", item("host.a", value)), "1_0_0_0", "stats", "gw", wall);
    };
    write(host("one", 5000, "1795266950") + sample(20, gap, "", "stats", "gw", "1795267010") +
          host("two", 25, "1795267015") + host("three", 26, "1795267016"));
    const auto scenes = zulstatsim::readRecording(file, false);
    const struct {
        double time;
        std::string value;  // empty: it is away
    } cases[] = {{0, "one"}, {59, "one"}, {60, ""}, {64, ""}, {65, "two"}, {66, "three"}};
    for (const auto& expected : cases) {
        const Scene scene = scenes(expected.time);
        ASSERT_EQ(scene.model == nullptr, expected.value.empty()) << expected.time;
        if (scene.model != nullptr) {
            EXPECT_EQ(walked(scene.model->stats("host", scene.moment).bytes()).lastValue, expected.value);
        }
    }
}

TEST_F(Recording, isWhatTheProgramServes) {
    write(sample(5, element("*", item("a", "\\u0000 \\\"x\\\"") + "," + item("b", std::string(300, 'v')))) +
          sample(7, gap));
    Program program("2>&1 --port=0 --speed 0 --gateways 2 --replay " + file);
    for (int gateway = 0; gateway < 2; ++gateway) {
        RawClient client(program.port());
        const Walked answer = walked(client.query("GET_STATS"));
        EXPECT_EQ(answer.summary, "*/2 ");
        EXPECT_EQ(answer.lastValue, std::string(300, 'v'));
        EXPECT_EQ(walked(client.query("GET_STATS", "a")).lastValue, std::string("\0 \"x\"", 5));
        EXPECT_EQ(walked(client.query("RESOURCE_GROUPS"), false).summary, "*/0 ");
    }
    // The second sample is a gap for good.
    Program later("2>&1 --port=0 --speed 100 --replay " + file);
    const std::uint16_t port = later.port();
    const auto connectOften = [port] {
        for (int tries = 0; tries < 10000; ++tries) {
            RawClient{port};
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    EXPECT_THROW(connectOften(), std::system_error);
}

TEST_F(Recording, isRefusedWithFileAndLine) {
    const std::string good = sample(100, element("host", item("a", "1")));
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string line = good;
        line.replace(line.find(from), from.size(), to);
        return line;
    };
    const struct {
        std::string lines;
        std::string reason;
    } cases[] = {
        {"", ": no sample"},
        {"\n \r\n", ": no sample"},
        {good + "x\n", ":2: no JSON from byte 1 on"},
        {good.substr(0, 20), ": no sample"},
        {"\n" + changed("zulstat/1", "zulstat/2"), ":2: its schema is not zulstat/1"},
        {"[]\n", ":1: no text 'schema'"},
        {changed("\"monotonic\":100", "\"monotonic\":1e999"), ":1: no JSON: a number is too large"},
        {changed("\"monotonic\":100", "\"monotonic\":\"100\",\"x\":1"), ":1: no number 'monotonic'"},
        {changed("\"protocol\":\"1_0_0_0\"", "\"protocol\":1"), ":1: no text 'protocol'"},
        {changed("\"items\":[", "\"items\":5,\"x\":["), ":1: no array 'items'"},
        {changed("\"rc\":0", "\"rc\":0.5"), ":1: no whole number 'rc'"},
        {changed("\"rc\":0", "\"rc\":2147483648"), ":1: the number 'rc' has more than 32 bits"},
        {changed("\"rc\":0", "\"rc\":-2147483649"), ":1: the number 'rc' has more than 32 bits"},
        {changed("\"rc\":0", "\"rc\":18446744073709551615"), ":1: the number 'rc' has more than 32 bits"},
        {changed("\"value\":\"1\"", "\"statistics\":3"), ":1: no text 'value'"},
        {changed("\"value\":\"1\"", "\"value\":\"\xff\""), ":1: no JSON from byte"},
        {changed("\"value\":\"1\"", "\"value\":\"" + std::string(65536, 'v') + '"'),
         ":1: the text 'value' is longer than 65535 bytes"},
        {good + sample(101, gap, "", "stats", "gw2"), ":2: a sample of another Gateway than the first one"},
        {sample(1, "", "1", "ids-by-group"), ":1: a sample of 'ids-by-group', which has no statistics"},
    };
    for (const auto& c : cases) {
        write(c.lines);
        try {
            zulstatsim::readRecording(file, false);
            ADD_FAILURE() << c.reason;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).substr(0, file.size() + c.reason.size()), file + c.reason);
        }
    }
    for (const std::string& name : {std::string("/"), std::string("/dev/zero"), file + ".no"}) {
        EXPECT_THROW(zulstatsim::readRecording(name, false), std::runtime_error) << name;
    }
}

}  // namespace
}  // namespace simtest
