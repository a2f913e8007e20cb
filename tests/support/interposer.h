// What becomes of calls that the library makes of the system and of the C library: a script of the calling thread sees
// each of them first, and may fail it or do it in another way. Without a script a call does its work. Calls inside the
// C and C++ run-time libraries (streams, operator new) do not come by here.
#pragma once

#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
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
struct CallFault : Script {
    CallFault(Call call, Outcome outcome, const void* object = nullptr);
};

// The first call of this kind on the object, or on any, calls the function first.
struct CallHook : Script {
    CallHook(Call call, const std::function<void()>& function, const void* object = nullptr);
};

// Counts allocations while it lives and lets the nth fail, or, given a function, calls that before it; with 0 none
// fails.
struct AllocationFault : Script {
    explicit AllocationFault(int nth, const std::function<void()>& function = nullptr);

    int attempts = 0;  // failed ones included
    int taken = 0;     // blocks handed out
    int released = 0;  // blocks given back, whoever had allocated them
};

}  // namespace support
