// What the exported calls share. Their sources are grouped by family: settings, connect, query, walk, result sets.
#pragma once

#include "zulstats.h"

#include <atomic>
#include <cstddef>

// 0 until initialisation has succeeded, then 1 for good.
extern std::atomic<int> stapiState;

// The version text, once initialised.
inline constexpr std::size_t STAPI_VERSION_SIZE = 32000;
extern char stapiVersion[STAPI_VERSION_SIZE];

// Initialises the library: 0, STAPI_RC_TRACE_INIT_FAILED, STAPI_RC_NO_MEMORY, STAPI_RC_LOCK_ALREADY_INITIALIZED or
// STAPI_RC_LOCK_INIT_FAILED. The first calls of several threads wait for one of them to do it.
[[nodiscard]] int initializeLibrary();

// Every exported call begins with this.
[[nodiscard]] inline int stapiInit() {
    return stapiState.load(std::memory_order_acquire) != 0 ? 0 : initializeLibrary();
}

// Copies of texts that the library takes or hands out hold at most this many bytes with their NUL.
inline constexpr std::size_t TEXT_COPY_MAX = 32766;

// Codes of the copy routines; traced, never returned by an exported call.
inline constexpr int TEXT_COPY_NO_MEMORY = -1;
inline constexpr int TEXT_COPY_REFUSED = -2;  // null pointer or overlength

// Copies a NUL-terminated text into a new block that the caller owns: 0, TEXT_COPY_NO_MEMORY (*outputPtr is null) or
// TEXT_COPY_REFUSED (*outputPtr is unchanged).
int dup2ASCIIString(const char* dataPtr, char** outputPtr);
int dup2NativeString(const char* dataPtr, char** outputPtr);

// As dup2NativeString, for a copy that reaches its output later: shownPtr is the address that the entry line shows.
int copyNativeString(const char* dataPtr, char** outputPtr, char* const* shownPtr);
