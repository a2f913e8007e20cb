// Result set tokens and the layout of the buffer that they point at.
//
// A buffer holds, in the machine's byte order and without alignment: a content marker (8 bytes), the query count, then
// per query element its length and text, its rc and, unless that is negative, an item count and as many items (length
// and identifier, in a statistics content also length and value), and last the terminator word.
#pragma once

#include "zulstats.h"

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

inline constexpr std::uint32_t RESULT_SET_TERMINATOR = 0x0E0F0E0F;
inline constexpr std::size_t EYECATCHER_SIZE = 8;
inline constexpr char STATS_CONTENT_MARKER[] = "ZULSTSET";
inline constexpr char IDS_CONTENT_MARKER[] = "ZULIDSET";

inline constexpr std::size_t RESULT_SET_BUFFER_SIZE = 32767;
// Zeroed bytes behind every buffer: a dump shows the line that holds the terminator whole.
inline constexpr std::size_t RESULT_SET_BUFFER_SLACK = 32;
inline constexpr std::size_t QUERY_STRING_BUFFER_SIZE = 32000;

inline constexpr char CONNECTION_OWNED_EYECATCHER[] = "ZULRSROB";
inline constexpr char USER_OWNED_EYECATCHER[] = "ZULRSUSR";
inline constexpr std::uint32_t CONNECTION_OWNED = 0x8888;
inline constexpr std::uint32_t USER_OWNED = 0x9999;

// A token belongs to the thread that owns it. Another thread may show a connection's in a dump of all connections: the
// fields marked "shown" are written and read as atomics, the content itself under contentMutex.
struct ResultSetToken {
    char eyecatcher[EYECATCHER_SIZE];  // no NUL
    std::uint32_t owner;               // shown; CONNECTION_OWNED or USER_OWNED
    std::uint32_t reserved;
    char* queryString;                 // owned: copy of the latest query string, null before the first
    char* verifiedQueryString;         // owned: QUERY_STRING_BUFFER_SIZE bytes in which getIdQuery leaves its result
    char* head;                        // shown; content, owned by the gateway token, or by the copy it belongs to
    char* next;                        // shown; the walk's read position
    std::uint32_t queryHeaderCount;    // query elements as the content says
    std::uint32_t queryIndex;          // 1-based query element of the walk, 0: not started
    std::uint32_t elementCount;        // items of the current query element
    std::uint32_t elementResultIndex;  // 1-based next item, 0: the position is at the start of a query element
    std::uint32_t pid;                 // owner, connection-owned tokens only
    std::uint32_t tid;
    const char* queryElementPtr;  // the current query element
    std::uint32_t queryElementLen;
    std::int32_t queryElementRC;
    pthread_t owningThread;  // what tid shows 32 bits of
};

// Held while the content of a connection's result set is written, and while another thread copies it. Only the owner
// reads it without. Taken last: nothing is taken and no trace line is written under it.
extern pthread_mutex_t contentMutex;

// From then on fork() leaves contentMutex free in the child. To be called once.
void freeContentInChildren();

// Creates a token: 0, STAPI_RC_NULL_PARAMETER, STAPI_RC_INVALID_OWNER or STAPI_RC_NO_MEMORY (newRsTokPtr is then null
// or not written).
[[nodiscard]] int createResultSet(ResultSetToken** newRsTokPtr, const char* eyecatcher, std::uint32_t owner);

// Releases a token and what it owns and stores null: 0, STAPI_RC_NULL_RESULT_SET_POINTER or STAPI_RC_NULL_RESULT_SET.
int deleteResultSet(ResultSetToken** rsPtr);

// The same without a trace line; rs may be null.
void releaseResultSet(ResultSetToken* rs);

// 0, STAPI_RC_RESULT_SET_PID_MISMATCH or STAPI_RC_RESULT_SET_TID_MISMATCH, whatever the token's owner code.
[[nodiscard]] int verifyAPIResultSetTokenOwner(const ResultSetToken* rsPtr);

// The same for connection-owned tokens; 0 for others.
[[nodiscard]] inline int checkOwner(const ResultSetToken* rsPtr) {
    return rsPtr->owner == CONNECTION_OWNED ? verifyAPIResultSetTokenOwner(rsPtr) : 0;
}

// Writes token and content to the trace destination: 0 or STAPI_RC_NULL_PARAMETER.
int dumpResultSetInternal(const ResultSetToken* rsPtr);

// Bytes of a result set buffer, its slack included.
using ContentCopy = char[RESULT_SET_BUFFER_SIZE + RESULT_SET_BUFFER_SLACK];

// Copies the content of a connection's result set, if it has any; its owner may be writing it.
void copyContent(const ResultSetToken* rsPtr, ContentCopy* copy);

// Writes the line "Dump of ResultSet(...)", a rule, and `content`, the result set's own or a copy of it. The caller
// holds traceLock. Returns the number of content bytes.
int dumpResultSetContent(const ResultSetToken* rsPtr, const char* content);

// A zeroed buffer for content, null when there is no memory. Released with free().
[[nodiscard]] char* allocateResultSetBuffer();

[[nodiscard]] inline bool hasContent(const char* head, const char* marker) {
    return std::memcmp(head, marker, EYECATCHER_SIZE) == 0;
}

[[nodiscard]] inline std::uint32_t loadWord(const char* at) {
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Writers. Each returns 0, or STAPI_RC_NULL_PARAMETER when it has nowhere to write. A write cursor is advanced by what
// was written. The caller makes sure that there is room, and does not hold contentMutex.
int addInteger(char** bufWPtr, std::uint32_t value);
int addChars(char** bufWPtr, const char* text, std::int32_t charCount);          // text of a reply
int addPlatformChars(char** bufWPtr, const char* text, std::int32_t charCount);  // our own text
int addTerminator(char* writeCursor);
// Length, characters and a NUL over which the cursor does not advance. Kept: nobody calls it.
int addIdStr(char** bufWPtr, const char* idString);

// Sets the flag to 1 if the word at the cursor is the terminator, else to 0. Kept: nobody calls it.
int checkTerminator(const char* dataCursor, std::int32_t* isRSTermPtr);
