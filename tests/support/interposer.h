// What becomes of calls that the library makes of the system and of the C library: a script of the calling thread sees
// each of them first, and may fail it or do it in another way. Without a script a call does its work. Calls inside the
// C and C++ run-time libraries (streams, operator new) do not come by here.
#ifndef INTERPOSER_H
#define INTERPOSER_H

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstddef>
#include <ctime>
#include <functional>
#include <optional>

namespace support {

enum class Call {
#define CALL(result, name, parameters, ...) name,
#include "interposed_calls.h"
#undef CALL
};

// The calls themselves, for scripts: real::close(descriptor).
extern "C" {
#define CALL(result, name, parameters, ...) result __real_##name parameters;
#include "interposed_calls.h"
#undef CALL
}
namespace real {
#define CALL(result, name, parameters, ...) inline constexpr auto& name = __real_##name;
#include "interposed_calls.h"
#undef CALL
}  // namespace real

[[nodiscard]] const char* nameOf(Call call);

// malloc, calloc or strdup.
[[nodiscard]] bool allocates(Call call);

// What a call comes to that is not made: errno and the result, a null pointer where the result is one.
struct Outcome {
    int error;
    int result = -1;
};

// The script of the thread that made it, from then on until it goes; scripts end in reverse order. Of several, `before`
// of all sees each call, the latest first, until one has an outcome.
struct Script {
    Script();
    ~Script();
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    // Sees every call, with its first argument if that is a pointer, and may have an outcome for it.
    std::function<std::optional<Outcome>(Call call, const void* object)> before{};
    // Does a call's work in its place; of several scripts the latest that has one.
#define CALL(result, name, parameters, ...) std::function<result parameters> name{};
#include "interposed_calls.h"
#undef CALL

    Script* const next;
};

// Calls of this kind on the object, or on any, have this outcome while it lives.
class CallFault {
public:
    CallFault(Call call, Outcome outcome, const void* object = nullptr);

private:
    Script script;
};

// The first call of this kind on the object, or on any, calls the function first.
class CallHook {
public:
    CallHook(Call call, const std::function<void()>& function, const void* object = nullptr);

private:
    Script script;
    bool done = false;
};

// Counts allocations while it lives and lets the nth fail, or, given a function, calls that before it; with 0 none
// fails.
class AllocationFault {
public:
    explicit AllocationFault(int nth, const std::function<void()>& function = nullptr);

    [[nodiscard]] int attempts() const {  // failed ones included
        return tried;
    }
    [[nodiscard]] int taken() const {  // blocks handed out
        return got;
    }
    [[nodiscard]] int released() const {  // blocks given back, whoever had allocated them
        return freed;
    }

private:
    Script script;
    int tried = 0;
    int got = 0;
    int freed = 0;
};

}  // namespace support

#endif
