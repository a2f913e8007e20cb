// Reads query reply payloads by distances alone, the way a client without an object stream decoder does.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simgateway/reply.h"

namespace simtest {

struct WalkedElement {
    std::uint32_t blockTag = 0;
    std::string text;
    std::int32_t rc = 0;
    std::vector<std::pair<std::string, std::string>> items;  // identifier and value; no value in identifier replies
};

// Both walks throw std::out_of_range when they need a byte beyond the payload's end.
class Walked {
public:
    static Walked stats(const simgateway::Bytes& payload) {
        return Walked(payload, true);
    }
    static Walked ids(const simgateway::Bytes& payload) {
        return Walked(payload, false);
    }

    std::vector<WalkedElement> elements;
    std::string summary;           // text, rc when not 0, and number of items of each: "conn/16 nothing(-1)/0 "
    std::size_t contentSize = 16;  // bytes that the reply takes in a client's result set
    bool toTheEnd = false;         // nothing follows the last element

private:
    Walked(const simgateway::Bytes& payload, bool withValues) : statistics(withValues), bytes(payload) {
        const std::uint32_t count = number(1) == 0x01 ? number(4) : 1;
        while (elements.size() < count) {
            elements.push_back(element());
        }
        toTheEnd = position == bytes.size();
    }

    WalkedElement element() {
        WalkedElement out;
        position += 6;
        text();
        position += 13;
        text();
        position += 13;
        out.blockTag = number(1);
        position += out.blockTag == 0x77 ? 1 : 4;
        out.text = text();
        out.rc = static_cast<std::int32_t>(number(4));
        const std::uint32_t count = out.rc < 0 ? 0 : number(4);
        if (statistics && out.rc >= 0) {
            position += 2;
            text();
            position += 8;
        }
        while (out.items.size() < count) {
            position += statistics ? 7 : 0;
            std::string id = text();
            out.items.emplace_back(id, statistics ? text() : "");
            contentSize += 4 + id.size() + (statistics ? 4 + out.items.back().second.size() : 0);
            position += statistics ? 2 : 0;
        }
        position += statistics && out.rc >= 0 ? 0 : 1;
        contentSize += out.text.size() + (out.rc < 0 ? 8 : 12);
        summary += out.text + (out.rc == 0 ? "/" : "(" + std::to_string(out.rc) + ")/");
        summary += std::to_string(out.items.size()) + " ";
        return out;
    }

    std::uint32_t number(int width) {
        std::uint32_t value = 0;
        for (; width > 0; --width) {
            value = value << 8 | bytes.at(position++);
        }
        return value;
    }

    std::string text() {
        std::string out(number(2), ' ');
        for (char& c : out) {
            c = static_cast<char>(bytes.at(position++));
        }
        return out;
    }

    bool statistics;
    simgateway::Bytes bytes;
    std::size_t position = 0;
};

}  // namespace simtest
