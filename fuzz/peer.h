// What the fuzz targets share: choices taken off the input, checks, and the Gateway behind the wrapped socket calls.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Checks what holds for every input.
#define REQUIRE(...)        \
    ((__VA_ARGS__) ? void() \
                   : (std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #__VA_ARGS__), std::abort()))

// Bytes to be taken off the front; zeros when they are used up.
struct Input {
    const std::uint8_t* data;
    std::size_t size;

    unsigned byte() {
        return size == 0 ? 0 : (--size, *data++);
    }
    unsigned word(unsigned width = 2) {
        unsigned value = 0;
        for (; width > 0; --width) {
            value = value << 8 | byte();
        }
        return value;
    }
    Input take(std::size_t count) {
        const Input taken = {data, count < size ? count : size};
        data += taken.size;
        size -= taken.size;
        return taken;
    }
};

// A number of the input as a whole: what costs much runs for a part of all inputs, whatever they cover.
unsigned turnOf(Input input);
void chooseTrace(const Input& input);  // sets the trace level, to 0 for most inputs

template <typename... Codes>
bool isOneOf(int code, Codes... codes) {
    return ((code == codes) || ...);
}

struct Peer {
    enum Kind {
        SCRIPTED,   // sends the stream in pieces and with errors, as the choices say; uses no descriptor
        CONNECTED,  // hands out, at connect, an end of a socket pair on which the stream waits
        MIRROR,     // answers a request with the request, and a call with the stream as payload; uses no descriptor
    } kind;
    Input stream;
    Input choices;     // or the answer
    int connectError;  // for connect to fail with, 0: none
    int otherEnd;      // of the latest socket pair
    unsigned failing;  // allocation from here on, counted from 1; 0: none
};
extern Peer peer;
