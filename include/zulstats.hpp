/*
 * zulstats for C++20: connections, rows and errors over the calls of zulstats.h, without cost and in the header alone.
 *
 *     zul::Connection gateway = zul::Connection::open("gw1", 7531);
 *     for (const zul::Row& row : gateway.stats()) {
 *         if (row.rc() >= 0) std::cout << row.id() << " = " << row.value() << '\n';
 *     }
 *
 * Conventions
 *
 *  1. Errors. Every call has two forms: one throws zul::error, the other takes a std::error_code&, sets it (to
 *     errc::ok, too) and throws nothing. Codes are zul::errc, in the category "zulstats": those of zulstats.h under
 *     their names, and a few of this header. Storage that runs out is errc::no_memory in both forms.
 *  2. Connections. A Connection owns its connection to the Gateway and closes it once, whatever has failed: it
 *     knows which failures have ended it. is_open() tells. Do not mix it with closeAllGatewayConnections.
 *  3. Rows. A query returns Rows, an input range over the answer, which lives in the connection: one Rows at a
 *     time. After the next query or the end of the connection, use of an earlier Rows, its iterators or a Row of it
 *     is errc::stale. A further begin() ends the walk before it: iterators of that are errc::stale, a copy of a Row
 *     is not. Iterators may outlive their Rows. A reference to a Row shows the present row of the walk and lasts as
 *     long as the connection, its Rows or an iterator. A std::string_view that a Row handed out is valid until the
 *     next query or the end of the connection, and nothing checks it. Snapshot is a copy that lasts.
 *  4. Threads. A Connection and its Rows belong to the thread that opened it, a Snapshot to one thread at a time.
 *     In a forked child a Connection of the parent does nothing: queries are errc::result_set_pid_mismatch, closing
 *     and destruction leave the parent's connection alone.
 *  5. Waiting. Calls wait for the Gateway without limit (zulstats.h, convention 9), destruction of an open
 *     Connection too.
 *  6. Many connections. One beyond the 257th of the process is open, and its queries are
 *     errc::gateway_token_not_found until an earlier one is closed (zulstats.h, convention 14). One that is closed or
 *     destroyed meanwhile is kept, with its descriptor, until a later end of another Connection lets the library find
 *     it.
 *  7. Shared objects. Codes and errors of one shared object are known as such in another.
 */
#ifndef ZULSTATS_HPP
#define ZULSTATS_HPP

#if __cplusplus < 202002L
#error "zulstats.hpp needs C++20 (-std=c++20)"
#endif
#ifndef __cpp_exceptions
#error "zulstats.hpp needs exceptions"
#endif

#include <unistd.h>

#include <atomic>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include "zulstats.h"
#include "zulstats_codes.h"

namespace zul {

/* ---- errors ---------------------------------------------------------------------------------------------------- */

/* The codes of zulstats.h (their meanings stand there), and of this header. */
enum class errc : int {
    ok = 0,
    lock_already_initialized = STAPI_RC_LOCK_ALREADY_INITIALIZED,
    lock_init_failed = STAPI_RC_LOCK_INIT_FAILED,
    null_gateway_token = STAPI_RC_NULL_GATEWAY_TOKEN,
    gateway_token_not_found = STAPI_RC_GATEWAY_TOKEN_NOT_FOUND,
    gateway_connection_lost = STAPI_RC_GATEWAY_CONNECTION_LOST,
    null_parameter = STAPI_RC_NULL_PARAMETER,
    invalid_trace_level = STAPI_RC_INVALID_TRACE_LEVEL,
    null_version_pointer = STAPI_RC_NULL_VERSION_POINTER,
    result_set_not_user_owned = STAPI_RC_RESULT_SET_NOT_USER_OWNED,
    invalid_port = STAPI_RC_INVALID_PORT,
    null_gateway_token_pointer = STAPI_RC_NULL_GATEWAY_TOKEN_POINTER,
    null_pointer = STAPI_RC_NULL_POINTER,
    no_result_set_buffer = STAPI_RC_NO_RESULT_SET_BUFFER,
    no_memory = STAPI_RC_NO_MEMORY,
    end_of_result_set = STAPI_RC_END_OF_RESULT_SET,
    gtl_corrupt = STAPI_RC_GTL_CORRUPT,
    invalid_owner = STAPI_RC_INVALID_OWNER,
    connect_failed = STAPI_RC_CONNECT_FAILED,
    wrong_result_set_content = STAPI_RC_WRONG_RESULT_SET_CONTENT,
    trace_init_failed = STAPI_RC_TRACE_INIT_FAILED,
    gateway_request_failed = STAPI_RC_GATEWAY_REQUEST_FAILED,
    result_set_pid_mismatch = STAPI_RC_RESULT_SET_PID_MISMATCH,
    result_set_tid_mismatch = STAPI_RC_RESULT_SET_TID_MISMATCH,
    null_result_set_pointer = STAPI_RC_NULL_RESULT_SET_POINTER,
    null_query_string = STAPI_RC_NULL_QUERY_STRING,
    null_result_set = STAPI_RC_NULL_RESULT_SET,
    null_id_data = STAPI_RC_NULL_ID_DATA,
    null_stat_data = STAPI_RC_NULL_STAT_DATA,
    trace_file_open_failed = STAPI_RC_TRACE_FILE_OPEN_FAILED,
    no_good_ids = STAPI_RC_NO_GOOD_IDS,
    host_not_resolved = STAPI_RC_HOST_NOT_RESOLVED,
    connect_bad_parameter = STAPI_RC_CONNECT_BAD_PARAMETER,
    connection_refused = STAPI_RC_CONNECTION_REFUSED,
    network_unreachable = STAPI_RC_NETWORK_UNREACHABLE,

    stale = 1001,          /* the rows belong to a former query, a former walk or a connection that has ended */
    not_open = 1002,       /* the connection is not open, or no longer */
    invalid_text = 1003,   /* a host, identifier or file name has a NUL in it, or an identifier a colon */
    nothing_asked = 1004,  /* no identifier or group is given, or an empty one; stats() and ids() ask for all */
    query_too_long = 1005, /* identifiers or groups take more than 32765 characters together */
};

namespace detail {

struct CodeText {
    int code;
    const char* name;
    const char* meaning;
    const char* hint;
};

inline constexpr CodeText CODE_TEXTS[] = {
    {int(errc::stale), "STALE", "the rows belong to a former query or walk, or to a connection that has ended",
     "Finish with the rows before the next query, or take a snapshot."},
    {int(errc::not_open), "NOT_OPEN", "the connection is not open", "Open a new connection."},
    {int(errc::invalid_text), "INVALID_TEXT",
     "a host, identifier or file name has a NUL in it, or an identifier a colon",
     "Pass texts without a NUL, and identifiers one by one."},
    {int(errc::nothing_asked), "NOTHING_ASKED", "no identifier or group is given, or an empty one",
     "Name one at least; without names all are asked for by another call."},
    {int(errc::query_too_long), "QUERY_TOO_LONG", "the identifiers or groups take more than 32765 characters together",
     "Ask in several queries."},
#define ZULSTATS_ROW(name, meaning, hint) {STAPI_RC_##name, #name, meaning, hint},
    ZULSTATS_CODES(ZULSTATS_ROW)
#undef ZULSTATS_ROW
};

inline const CodeText* findCode(int code) noexcept {
    for (const CodeText& text : CODE_TEXTS) {
        if (text.code == code) {
            return &text;
        }
    }
    return nullptr;
}

class ZULSTATS_API Category final : public std::error_category {
public:
    const char* name() const noexcept override {
        return "zulstats";
    }
    std::string message(int code) const override {
        const CodeText* text = findCode(code);
        return code == 0 ? "success" : text != nullptr ? text->meaning : "code " + std::to_string(code);
    }
};

}  // namespace detail

/* The category of errc. */
ZULSTATS_API inline const std::error_category& category() noexcept {
    static const detail::Category instance;
    return instance;
}

inline std::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(code), category()};
}

namespace detail {

/* Whether it is the category of errc: a shared object may have an instance of its own. */
inline bool isOurs(const std::error_category& of) noexcept {
    return of == category() || std::string_view(of.name()) == category().name();
}

inline const CodeText* findText(const std::error_code& code) noexcept {
    return isOurs(code.category()) ? findCode(code.value()) : nullptr;
}

}  // namespace detail

/* Whether a code is this one, whichever shared object has set it. */
inline bool operator==(const std::error_code& code, errc value) noexcept {
    return code.value() == static_cast<int>(value) && detail::isOurs(code.category());
}

/* The name of a code of this category, such as "CONNECTION_REFUSED"; empty for others and for errc::ok. */
inline const char* name(const std::error_code& code) noexcept {
    const detail::CodeText* text = detail::findText(code);
    return text == nullptr ? "" : text->name;
}

/* What to do about a code of this category: one sentence; empty for others and for errc::ok. */
inline const char* hint(const std::error_code& code) noexcept {
    const detail::CodeText* text = detail::findText(code);
    return text == nullptr ? "" : text->hint;
}

/* What the throwing forms throw. what() is the message, code() the errc; name() and hint() are those of the code. */
class ZULSTATS_API error : public std::system_error {
public:
    explicit error(std::error_code code) : std::system_error(code) {
    }
    const char* name() const noexcept {
        return zul::name(code());
    }
    const char* hint() const noexcept {
        return zul::hint(code());
    }
};

}  // namespace zul

template <>
struct std::is_error_code_enum<zul::errc> : std::true_type {};

namespace zul {

namespace detail {

inline void throwIf(const std::error_code& code) {
    if (code) [[unlikely]] {
        throw error(code);
    }
}

/* Runs what takes a std::error_code& last, and throws what it sets. */
template <typename Work>
auto throwing(Work work) {
    std::error_code code;
    if constexpr (std::is_void_v<decltype(work(code))>) {
        work(code);
        throwIf(code);
    } else {
        auto result = work(code);
        throwIf(code);
        return result;
    }
}

struct Source;
struct Cursor;
using SourcePtr = std::shared_ptr<Source>;
using CursorPtr = std::shared_ptr<Cursor>;

/* Where rows come from: a connection, or the copy of a snapshot. Rows keep it; `generation` counts what makes them
 * stale. */
struct Source {
    GatewayToken* gateway = nullptr;
    ResultSetToken* result = nullptr;
    std::uint64_t generation = 0;
    pid_t process = 0; /* that opened the connection */
    bool ids = false;  /* what the content is: identifiers, or statistics */
    std::string version;
    std::string query; /* the string of the latest query; kept for its storage */

    /* In the list of `unclosed`, which owns it by `self`: the next one. */
    SourcePtr self;
    Source* next = nullptr;

    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
};

/* Connections that their close has not found (convention 6). */
ZULSTATS_API inline constinit std::atomic<Source*> unclosed = nullptr;

/* Closes a connection, or puts it into the list of those that cannot be closed yet. Tells whether it is closed. */
inline bool closeOrKeep(SourcePtr source) noexcept {
    if (closeGatewayConnection(&source->gateway) != STAPI_RC_GATEWAY_TOKEN_NOT_FOUND) {
        return true;
    }
    Source* const kept = source.get();
    kept->self = std::move(source);
    kept->next = unclosed.load(std::memory_order_relaxed);
    while (!unclosed.compare_exchange_weak(kept->next, kept, std::memory_order_release, std::memory_order_relaxed)) {
    }
    return false;
}

/* Closes what of that list can be closed now: each that is closed may let the library find another. */
inline void closeUnclosed() noexcept {
    bool closed = true;
    while (closed && unclosed.load(std::memory_order_relaxed) != nullptr) {
        closed = false;
        Source* at = unclosed.exchange(nullptr, std::memory_order_acquire);
        while (at != nullptr) {
            SourcePtr source = std::move(at->self);
            at = at->next;
            if (source->process == getpid() && closeOrKeep(std::move(source))) {
                closed = true;
            }
        }
    }
}

}  // namespace detail

/* ---- rows ------------------------------------------------------------------------------------------------------ */

/*
 * One entry of an answer: a statistic, an identifier, or an element that failed. The texts are views into the answer
 * (convention 3). A copy of a Row may be kept; each access throws errc::stale once the answer has gone.
 */
class Row {
public:
    Row() = default;

    /* What was asked for, as the Gateway repeats it. */
    std::string_view element() const {
        return text(data.queryElementPtr, data.queryElementLen);
    }
    /* The Gateway's code for the element; negative: it failed, and id and value are empty. */
    std::int32_t rc() const {
        check();
        return data.queryElementRC;
    }
    /* The identifier of the statistic or group. */
    std::string_view id() const {
        return text(data.statIdPtr, data.statIdLen);
    }
    /* The value of a statistic; empty in an answer of identifiers. */
    std::string_view value() const {
        return text(data.statValuePtr, data.statValueLen);
    }
    /* The value where all of it is a decimal number that a double holds. */
    std::optional<double> number() const {
        std::string_view digits = value();
        if (digits.find_first_not_of("+-.0123456789eE") != std::string_view::npos) {
            return std::nullopt; /* from_chars also takes names of what is no number */
        }
        if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') {
            digits.remove_prefix(1);
        }
        double number = 0;
        const auto [rest, failed] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        const bool taken = failed == std::errc() && rest == digits.data() + digits.size();
        return taken ? std::optional(number) : std::nullopt;
    }

private:
    friend struct detail::Cursor;

    void check() const {
        if (source == nullptr || source->generation != generation) [[unlikely]] {
            throw error(errc::stale);
        }
    }
    std::string_view text(const char* chars, std::int32_t length) const {
        check();
        return {chars, static_cast<std::size_t>(length)};
    }

    detail::SourcePtr source;
    std::uint64_t generation = 0;
    StatData data = {};
};

namespace detail {

/*
 * The walk over a source's answer, whose result set has one position: shared by the connection or snapshot, its Rows
 * and their iterators.
 */
struct Cursor {
    const SourcePtr source = std::make_shared<Source>();
    Row current;
    std::uint64_t walk = 0; /* the number of the latest one, of all answers; 0 is none */

    Cursor() {
        current.source = source;
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    /* The answer goes: rows and walks of it are stale. */
    void renew() noexcept {
        ++source->generation;
        ++walk;
    }
    /* Each takes a row into `current`: false at the end, and with an error code. */
    bool first(std::error_code& code) noexcept {
        ++walk;
        if (!take(getFirstStat, getFirstId, code)) {
            return false;
        }
        current.generation = source->generation;
        return true;
    }
    bool step(std::error_code& code) noexcept {
        return take(getNextStat, getNextId, code);
    }

private:
    template <typename TakeStat, typename TakeId>
    bool take(TakeStat takeStat, TakeId takeId, std::error_code& code) noexcept {
        StatData& data = current.data;
        int rc = 0;
        if (source->ids) {
            IdData id = {};
            rc = takeId(source->result, &id);
            if (rc == 0) [[likely]] {
                data.queryElementPtr = id.queryElementPtr;
                data.queryElementLen = id.queryElementLen;
                data.queryElementRC = id.queryElementRC;
                data.statIdPtr = id.idPtr;
                data.statIdLen = id.idLen;
                data.statValueLen = 0;
            }
        } else {
            rc = takeStat(source->result, &data);
        }
        if (rc != 0) [[unlikely]] {
            code = rc == STAPI_RC_END_OF_RESULT_SET ? errc::ok : static_cast<errc>(rc);
            return false;
        }
        if (data.queryElementRC < 0) [[unlikely]] {
            /* The library leaves them as they were. */
            data.statIdLen = 0;
            data.statValueLen = 0;
        }
        return true;
    }
};

}  // namespace detail

class Snapshot;

/*
 * The answer to a query, a range of Row for one walk at a time: begin() walks from the start, and ends an earlier walk.
 * Empty where it was made by default or by a call that failed.
 */
class Rows {
public:
    class iterator {
    public:
        using iterator_concept = std::input_iterator_tag;
        using value_type = Row;
        using difference_type = std::ptrdiff_t;

        iterator() = default;

        /* Throws errc::stale, and errc::end_of_result_set behind the last row. */
        const Row& operator*() const {
            check();
            return cursor->current;
        }
        const Row* operator->() const {
            return &**this;
        }
        /* Throws the same, and what next() sets. */
        iterator& operator++() {
            check();
            std::error_code code;
            if (!cursor->step(code)) {
                walk = 0;
                detail::throwIf(code);
            }
            return *this;
        }
        void operator++(int) {
            ++*this;
        }
        friend bool operator==(const iterator& at, std::default_sentinel_t) noexcept {
            return at.walk == 0;
        }

    private:
        friend class Rows;
        iterator(detail::CursorPtr of, std::uint64_t number) noexcept : cursor(std::move(of)), walk(number) {
        }
        void check() const {
            if (cursor == nullptr || cursor->walk != walk) [[unlikely]] {
                throw error(cursor != nullptr && walk == 0 ? errc::end_of_result_set : errc::stale);
            }
        }
        detail::CursorPtr cursor;
        std::uint64_t walk = 0; /* 0 at the end */
    };

    Rows() = default;
    Rows(Rows&& other) noexcept = default;
    Rows& operator=(Rows&& other) noexcept = default;
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    /* Walks from the first row. Throws errc::stale, or a code of the walk. */
    iterator begin() {
        if (cursor == nullptr) {
            return {};
        }
        std::error_code code;
        const bool has = first(code);
        detail::throwIf(code);
        return {cursor, has ? walk : 0};
    }
    static std::default_sentinel_t end() noexcept {
        return std::default_sentinel;
    }

    /*
     * Takes the next row, from the first on, without a throw: false at the end, and with an error code: errc::stale, or
     * a code of the walk.
     */
    bool next(Row& row, std::error_code& code) noexcept {
        code = errc::ok;
        if (cursor == nullptr || !(walk == 0 ? first(code) : step(code))) {
            return false;
        }
        row = cursor->current;
        return true;
    }

    /* A copy of the answer, empty where the Rows are. Sets errc::stale, or the codes of copyResultSet. */
    [[nodiscard]] inline Snapshot snapshot(std::error_code& code) const noexcept;
    [[nodiscard]] inline Snapshot snapshot() const;

private:
    friend class Connection;
    friend class Snapshot;

    explicit Rows(detail::CursorPtr of) noexcept : cursor(std::move(of)), generation(cursor->source->generation) {
    }

    bool first(std::error_code& code) noexcept {
        if (cursor->source->generation != generation) [[unlikely]] {
            code = errc::stale;
            return false;
        }
        const bool has = cursor->first(code);
        walk = cursor->walk;
        return has;
    }
    bool step(std::error_code& code) noexcept {
        if (cursor->walk != walk) [[unlikely]] {
            code = errc::stale;
            return false;
        }
        return cursor->step(code);
    }

    detail::CursorPtr cursor;
    std::uint64_t generation = 0;
    std::uint64_t walk = 0; /* the latest one of these rows */
};

/* A copy of an answer, independent of its connection. Move-only; one thread at a time. */
class Snapshot {
public:
    Snapshot() = default;
    Snapshot(Snapshot&& other) noexcept = default;
    Snapshot& operator=(Snapshot&& other) noexcept {
        if (this != &other) {
            release();
            cursor = std::move(other.cursor);
        }
        return *this;
    }
    ~Snapshot() {
        release();
    }

    /* The rows; stale once the snapshot has gone or rows() was called again. */
    Rows rows() noexcept {
        if (cursor == nullptr) {
            return {};
        }
        cursor->renew();
        return Rows(cursor);
    }

private:
    friend class Connection;
    friend class Rows;

    static Snapshot of(const detail::Source& source, std::error_code& code) noexcept {
        Snapshot snapshot;
        try {
            snapshot.cursor = std::make_shared<detail::Cursor>();
            detail::Source& copy = *snapshot.cursor->source;
            copy.ids = source.ids;
            if (const int rc = copyResultSet(source.result, &copy.result); rc != 0) {
                code = static_cast<errc>(rc);
                snapshot = {};
            }
        } catch (const std::bad_alloc&) {
            code = errc::no_memory;
        }
        return snapshot;
    }

    void release() noexcept {
        if (cursor != nullptr) {
            cursor->renew();
            freeResultSet(&cursor->source->result);
            cursor.reset();
        }
    }

    detail::CursorPtr cursor;
};

inline Snapshot Rows::snapshot(std::error_code& code) const noexcept {
    code = errc::ok;
    if (cursor == nullptr) {
        return {};
    }
    if (cursor->source->generation != generation) {
        code = errc::stale;
        return {};
    }
    return Snapshot::of(*cursor->source, code);
}

inline Snapshot Rows::snapshot() const {
    return detail::throwing([&](std::error_code& code) { return snapshot(code); });
}

/* ---- connections ----------------------------------------------------------------------------------------------- */

/* What names identifiers or groups: any range of what converts to std::string_view, also one that makes its texts. */
template <typename Range>
concept Names =
    std::ranges::input_range<Range> && std::convertible_to<std::ranges::range_reference_t<Range>, std::string_view>;

namespace detail {

/* Joins names to a query string, and says what is wrong with them. */
template <typename Range>
errc join(Range& names, std::string& query) {
    constexpr std::size_t LONGEST = 32765;
    query.clear();
    for (auto&& each : names) {
        if constexpr (std::is_pointer_v<std::remove_cvref_t<decltype(each)>>) {
            if (each == nullptr) {
                return errc::invalid_text;
            }
        }
        const std::string_view name = std::forward<decltype(each)>(each);
        if (name.empty()) {
            return errc::nothing_asked;
        }
        if (name.find('\0') != std::string_view::npos || name.find(':') != std::string_view::npos) {
            return errc::invalid_text;
        }
        if (query.size() + (query.empty() ? 0 : 1) + name.size() > LONGEST) {
            return errc::query_too_long;
        }
        query.append(query.empty() ? "" : ":").append(name);
    }
    return query.empty() ? errc::nothing_asked : errc::ok; /* the empty query would ask for everything */
}

}  // namespace detail

/*
 * A connection to a Gateway. Move-only; one made by default, moved from or closed is not open, and queries on it are
 * errc::not_open.
 *
 * Queries set the codes that zulstats.h lists with its query calls. After errc::gateway_connection_lost and
 * errc::gateway_request_failed the connection is closed. The forms with names also set errc::invalid_text (for a null
 * pointer too), errc::nothing_asked and errc::query_too_long, and then ask nothing. What the range of names itself
 * throws passes on, in both forms; but its zul::error and std::bad_alloc become codes like the others.
 */
class Connection {
public:
    Connection() = default;
    Connection(Connection&& other) noexcept = default;
    Connection& operator=(Connection&& other) noexcept {
        if (this != &other) {
            close();
            cursor = std::move(other.cursor);
        }
        return *this;
    }
    ~Connection() {
        close();
    }

    /*
     * Opens a connection to the Gateway at a host, name or address, and port. Sets errc::invalid_text, and the codes of
     * openRemoteGatewayConnection. A null pointer is no host.
     */
    [[nodiscard]] static Connection open(std::string_view host, int port, std::error_code& code) noexcept {
        code = errc::ok;
        Connection connection;
        try {
            const std::string name(host);
            if (name.find('\0') != std::string::npos) {
                code = errc::invalid_text;
                return connection;
            }
            auto cursor = std::make_shared<detail::Cursor>();
            detail::Source& source = *cursor->source;
            source.process = getpid();
            char* version = nullptr;
            if (const int rc = openRemoteGatewayConnection(name.c_str(), port, &source.gateway, &version); rc != 0) {
                code = static_cast<errc>(rc);
                return connection;
            }
            const std::unique_ptr<char, decltype(&std::free)> owned(version, &std::free);
            connection.cursor = std::move(cursor);
            source.version = version == nullptr ? "" : version;
        } catch (const std::bad_alloc&) {
            connection.close();
            code = errc::no_memory;
        }
        return connection;
    }
    [[nodiscard]] static Connection open(std::string_view host, int port) {
        return detail::throwing([&](std::error_code& code) { return open(host, port, code); });
    }

    [[nodiscard]] bool is_open() const noexcept {
        return cursor != nullptr;
    }
    /* The Gateway's statistics protocol version, such as "1_0_0_0"; empty where nothing is open. Valid until the
     * connection ends. */
    [[nodiscard]] std::string_view protocol_version() const noexcept {
        return cursor == nullptr ? std::string_view() : cursor->source->version;
    }

    /* All statistics. */
    Rows stats(std::error_code& code) noexcept {
        return ask(false, code, [](detail::Source& at) { return getStats(at.gateway, &at.result); });
    }
    Rows stats() {
        return detail::throwing([&](std::error_code& code) { return stats(code); });
    }
    /* The identifiers of all statistics. */
    Rows ids(std::error_code& code) noexcept {
        return ask(true, code, [](detail::Source& at) { return getStatIds(at.gateway, &at.result); });
    }
    Rows ids() {
        return detail::throwing([&](std::error_code& code) { return ids(code); });
    }
    /* The identifiers of all resource groups. */
    Rows groups(std::error_code& code) noexcept {
        return ask(true, code, [](detail::Source& at) { return getResourceGroupIds(at.gateway, &at.result); });
    }
    Rows groups() {
        return detail::throwing([&](std::error_code& code) { return groups(code); });
    }

    /* The statistics with these identifiers. */
    template <Names Range>
    Rows stats_by_id(Range&& names, std::error_code& code) {
        return askFor(names, false, code,
                      [](detail::Source& at) { return getStatsByStatId(at.gateway, at.query.c_str(), &at.result); });
    }
    /* The statistics of these groups. */
    template <Names Range>
    Rows stats_by_group(Range&& names, std::error_code& code) {
        return askFor(
            names, false, code,
            [](detail::Source& at) { return getStatsByStatGroupId(at.gateway, at.query.c_str(), &at.result); },
            Failed::leavesOpen);
    }
    /* The identifiers of the statistics of these groups. */
    template <Names Range>
    Rows ids_by_group(Range&& names, std::error_code& code) {
        return askFor(names, true, code, [](detail::Source& at) {
            return getStatIdsByStatGroupId(at.gateway, at.query.c_str(), &at.result);
        });
    }
    template <Names Range>
    Rows stats_by_id(Range&& names) {
        return detail::throwing([&](std::error_code& code) { return stats_by_id(names, code); });
    }
    template <Names Range>
    Rows stats_by_group(Range&& names) {
        return detail::throwing([&](std::error_code& code) { return stats_by_group(names, code); });
    }
    template <Names Range>
    Rows ids_by_group(Range&& names) {
        return detail::throwing([&](std::error_code& code) { return ids_by_group(names, code); });
    }
    using List = std::initializer_list<std::string_view>;
    Rows stats_by_id(List names, std::error_code& code) noexcept {
        return stats_by_id<List&>(names, code);
    }
    Rows stats_by_group(List names, std::error_code& code) noexcept {
        return stats_by_group<List&>(names, code);
    }
    Rows ids_by_group(List names, std::error_code& code) noexcept {
        return ids_by_group<List&>(names, code);
    }
    Rows stats_by_id(List names) {
        return stats_by_id<List&>(names);
    }
    Rows stats_by_group(List names) {
        return stats_by_group<List&>(names);
    }
    Rows ids_by_group(List names) {
        return ids_by_group<List&>(names);
    }

    /* A copy of the latest answer. Sets errc::not_open, errc::null_result_set before the first query, or the codes of
     * copyResultSet. */
    [[nodiscard]] Snapshot snapshot(std::error_code& code) noexcept {
        code = errc::ok;
        if (!is_open()) {
            code = errc::not_open;
            return {};
        }
        return Snapshot::of(*cursor->source, code);
    }
    [[nodiscard]] Snapshot snapshot() {
        return detail::throwing([&](std::error_code& code) { return snapshot(code); });
    }

    /* Closes what is open; Rows of it are stale. Waits for the Gateway (convention 5). */
    void close() noexcept {
        const detail::SourcePtr source = forget();
        if (source != nullptr && source->process == getpid() && detail::closeOrKeep(source)) {
            detail::closeUnclosed();
        }
    }

private:
    /* What a query that fails for good does with the connection. */
    enum class Failed { closes, leavesOpen };

    static bool endsConnection(int rc) noexcept {
        return rc == STAPI_RC_GATEWAY_CONNECTION_LOST || rc == STAPI_RC_GATEWAY_REQUEST_FAILED;
    }

    /* From here on nothing is open, whatever becomes of what was. */
    detail::SourcePtr forget() noexcept {
        if (cursor == nullptr) {
            return {};
        }
        cursor->renew();
        return std::exchange(cursor, nullptr)->source;
    }

    template <typename Query>
    Rows ask(bool ids, std::error_code& code, Query query, Failed failed = Failed::closes) noexcept {
        code = errc::ok;
        if (!is_open()) {
            code = errc::not_open;
            return {};
        }
        cursor->renew();
        detail::Source& source = *cursor->source;
        const int rc = query(source);
        if (rc != 0) [[unlikely]] {
            code = static_cast<errc>(rc);
            if (endsConnection(rc) && failed == Failed::leavesOpen) {
                close();
            } else if (endsConnection(rc)) {
                forget();
                detail::closeUnclosed();
            }
            return {};
        }
        source.ids = ids;
        return Rows(cursor);
    }

    template <typename Range, typename Query>
    Rows askFor(Range& names, bool ids, std::error_code& code, Query query, Failed failed = Failed::closes) {
        code = errc::ok;
        if (!is_open()) {
            code = errc::not_open;
            return {};
        }
        try {
            std::string joined = std::move(cursor->source->query); /* whose names may come by this very connection */
            code = detail::join(names, joined);
            if (is_open()) {
                cursor->source->query = std::move(joined);
            }
        } catch (const error& failure) {
            code = failure.code();
        } catch (const std::bad_alloc&) {
            code = errc::no_memory;
        }
        return code ? Rows() : ask(ids, code, query, failed);
    }

    detail::CursorPtr cursor;
};

/* ---- trace ----------------------------------------------------------------------------------------------------- */

/* The trace of the process; any thread may change it. Levels and codes are those of setAPITraceLevel and
 * setAPITraceFile. */
struct Trace {
    static void level(int level, std::error_code& code) noexcept {
        code = static_cast<errc>(setAPITraceLevel(level));
    }
    static void level(int level) {
        detail::throwing([&](std::error_code& code) { Trace::level(level, code); });
    }
    [[nodiscard]] static int level(std::error_code& code) noexcept {
        int level = 0;
        code = static_cast<errc>(getAPITraceLevel(&level));
        return level;
    }
    [[nodiscard]] static int level() {
        return detail::throwing([](std::error_code& code) { return Trace::level(code); });
    }
    /* Appends the trace to a file. */
    static void file(const std::string& name, std::error_code& code) noexcept {
        code = name.find('\0') != std::string::npos ? errc::invalid_text
                                                    : static_cast<errc>(setAPITraceFile(name.c_str()));
    }
    static void file(const std::string& name) {
        detail::throwing([&](std::error_code& code) { Trace::file(name, code); });
    }
    /* Writes the trace to the standard error stream, as at the beginning. */
    static void standard_error(std::error_code& code) noexcept {
        code = static_cast<errc>(setAPITraceFile(nullptr));
    }
    static void standard_error() {
        detail::throwing([](std::error_code& code) { standard_error(code); });
    }
};

}  // namespace zul

#endif
