// Faults in words: each row of the table sets what it says, and what cannot be meant is refused.
#include <fstream>

#include <gtest/gtest.h>

#include "fault_words.h"
#include "support/hex.h"
#include "support/temp_directory.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using simgateway::Fault;
using support::Bytes;
using support::hex;
using zulstatsim::FaultOrder;
using zulstatsim::parseFaultOrder;
using enum simgateway::Exchange;

class FaultWords : public testing::Test {
protected:
    FaultWords() {
        std::ofstream(file, std::ios::binary) << "\x01,:\n" << '\0';
    }

    const support::TempDirectory directory;
    const std::string file = directory.file("words");
};

TEST_F(FaultWords, meanFaults) {
    const Bytes inFile = hex("01 ',:' 0A 00");
    const struct {
        std::string words;
        FaultOrder expected;
    } cases[] = {
        {"invoke:healthy", {0, invoke, {}}},
        {"invoke:array-flag=0", {0, invoke, {.arrayFlag = 0}}},
        {"invoke:block-tag=0x7A", {0, invoke, {.blockTag = 0x7A}}},
        {"invoke:element-rc=-7,element-index=2:30", {0, invoke, {.elementRc = -7, .elementIndex = 2}, 30}},
        {"handshake:payload=" + file, {0, handshake, {.payload = inFile}}},
        {"get-attribute:protocol=2 = 1", {0, getAttribute, {.payload = simgateway::attributePayload("2 = 1")}}},
        {"auth-first:auth-refused:always", {0, authFirst, {.authRefused = true}, std::nullopt}},
        {"auth-second:word0=0xFFFFFFFF", {0, authSecond, {.word0 = -1}}},
        {"12/admin-init:reply-rc=42", {12, adminInit, {.replyRc = 42}}},
        {"get-attribute:exception-flag=255", {0, getAttribute, {.exceptionFlag = 255}}},
        {"close:no-body", {0, close, {.noBody = true}}},
        {"close:body-size=0", {0, close, {.bodySize = 0}}},
        {"invoke:eyecatcher=a:1b:2", {0, invoke, {.eyecatcher = "a:1b"}, 2}},
        {"invoke:version=0x700000", {0, invoke, {.version = 0x700000}}},
        {"invoke:flow-type=-2147483648", {0, invoke, {.flowType = -2147483647 - 1}}},
        {"invoke:echo-word=4294967295", {0, invoke, {.echoWord = 0xFFFFFFFF}}},
        {"invoke:header-rc=0xF004", {0, invoke, {.headerRc = 0xF004}}},
        {"invoke:name=", {0, invoke, {.name = ""}}},
        {"invoke:name-length=77", {0, invoke, {.nameLength = 77}}},
        {"invoke:header-flag=7", {0, invoke, {.headerFlag = 7}}},
        {"invoke:data-length=-1", {0, invoke, {.dataLength = -1}}},
        {"invoke:raw-reply=" + file, {0, invoke, {.rawReply = inFile}}},
        {"invoke:silent", {0, invoke, {.silent = true}}},
        {"invoke:delay=0.0625", {0, invoke, {.delay = 63ms}}},
        {"invoke:write-size=10,write-pause=86400", {0, invoke, {.writeSize = 10, .writePause = 24h}}},
        {"invoke:close-after=0,reset:1000000000", {0, invoke, {.closeAfter = 0, .reset = true}, 1000000000}},
    };
    std::string all;
    for (const auto& c : cases) {
        const FaultOrder order = parseFaultOrder(c.words);
        EXPECT_EQ(order.gateway, c.expected.gateway) << c.words;
        EXPECT_EQ(order.exchange, c.expected.exchange) << c.words;
        EXPECT_TRUE(order.fault == c.expected.fault) << c.words;
        EXPECT_EQ(order.times, c.expected.times) << c.words;
        all += c.words.substr(c.words.find(':') + 1) + ",";
    }
    for (const zulstatsim::FaultWord& word : zulstatsim::faultWords()) {
        EXPECT_NE(("," + all).find("," + std::string(word.name)), std::string::npos) << word.name << " has no case";
    }
}

TEST_F(FaultWords, areRefused) {
    const struct {
        std::string words;
        std::string reason;
    } cases[] = {
        {"", "no EXCHANGE:FAULT in ''"},
        {"silent", "no EXCHANGE:FAULT in 'silent'"},
        {"query:silent", "unknown exchange 'query'"},
        {"unknown:silent", "unknown exchange 'unknown'"},
        {"-1/invoke:silent", "unknown exchange '-1/invoke'"},
        {"0/invoke:silent", "bad value '0' for the Gateway"},
        {"invoke:", "unknown fault ''"},
        {"invoke:3", "unknown fault '3'"},
        {"invoke:silent:0", "bad value '0' for the number of exchanges"},
        {"invoke:silent:99999999999999999999", "bad value '99999999999999999999' for the number of exchanges"},
        {"invoke:silent:-1", "unknown fault 'silent:-1'"},
        {"invoke:silent,", "unknown fault ''"},
        {"invoke:silent,silent", "silent is given twice"},
        {"invoke:silent=1", "silent takes no value"},
        {"invoke:delay", "delay needs a value"},
        {"invoke:delay=nan", "bad value 'nan' for delay"},
        {"invoke:delay=86401", "bad value '86401' for delay"},
        {"invoke:header-rc=4294967296", "bad value '4294967296' for header-rc"},
        {"invoke:header-rc=0x", "bad value '0x' for header-rc"},
        {"invoke:header-rc=0x-1", "bad value '0x-1' for header-rc"},
        {"invoke:array-flag=256", "bad value '256' for array-flag"},
        {"invoke:write-size=0", "bad value '0' for write-size"},
        {"invoke:body-size=16777217", "bad value '16777217' for body-size"},
        {"invoke:eyecatcher=Gates", "eyecatcher has 4 characters, unlike 'Gates'"},
        {"handshake:element-rc=1", "element-rc changes nothing in handshake, only in invoke"},
        {"close:word0=1",
         "word0 changes nothing in close, only in auth-first, auth-second, admin-init, get-attribute, invoke"},
        {"invoke:element-index=1", "element-index does nothing without element-rc"},
        {"invoke:reset", "reset does nothing without close-after"},
        {"invoke:payload=", "payload needs a file name"},
        {"invoke:payload=" + file + ".no", file + ".no: No such file or directory"},
        {"invoke:payload=/", "/: Is a directory"},
        {"invoke:raw-reply=/dev/zero", "/dev/zero: longer than 16777216 bytes"},
    };
    for (const auto& c : cases) {
        try {
            parseFaultOrder(c.words);
            ADD_FAILURE() << c.words << " is taken";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), c.reason) << c.words;
        }
    }
}

}  // namespace
}  // namespace simtest
