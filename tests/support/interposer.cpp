#include "interposer.h"

#include <cerrno>
#include <type_traits>
#include <utility>

namespace support {

namespace {

thread_local Script* scripts;  // the latest first

template <typename First, typename... Rest>
const void* objectOf(First first, Rest...) {
    if constexpr (std::is_pointer_v<First>) {
        return first;
    } else {
        return nullptr;
    }
}

template <typename Result, typename... Parameters>
Result pass(Call call, std::function<Result(Parameters...)> Script::*instead, Result (*real)(Parameters...),
            Parameters... arguments) {
    const Script* worker = nullptr;
    for (const Script* script = scripts; script != nullptr; script = script->next) {
        const auto outcome = script->before ? script->before(call, objectOf(arguments...)) : std::nullopt;
        if (outcome) {
            errno = outcome->error;
            if constexpr (std::is_pointer_v<Result>) {
                return nullptr;
            } else {
                return static_cast<Result>(outcome->result);
            }
        }
        worker = worker == nullptr && script->*instead ? script : worker;
    }
    return worker == nullptr ? real(arguments...) : (worker->*instead)(arguments...);
}

}  // namespace

extern "C" {
#define CALL(result, name, parameters, ...)                                  \
    result __wrap_##name parameters;                                         \
    result __wrap_##name parameters {                                        \
        return pass(Call::name, &Script::name, &__real_##name, __VA_ARGS__); \
    }
#include "interposed_calls.h"
#undef CALL
}

const char* nameOf(Call call) {
    static constexpr const char* NAMES[] = {
#define CALL(result, name, parameters, ...) #name,
#include "interposed_calls.h"
#undef CALL
    };
    return NAMES[static_cast<int>(call)];
}

bool allocates(Call call) {
    return call == Call::malloc || call == Call::calloc || call == Call::strdup;
}

Script::Script() : next(std::exchange(scripts, this)) {
}

Script::~Script() {
    scripts = next;
}

CallFault::CallFault(Call call, Outcome outcome, const void* object) {
    before = [=](Call made, const void* on) {
        return made == call && (object == nullptr || on == object) ? std::optional(outcome) : std::nullopt;
    };
}

CallHook::CallHook(Call call, const std::function<void()>& function, const void* object) {
    before = [=, done = false](Call made, const void* on) mutable {
        if (made == call && (object == nullptr || on == object) && !std::exchange(done, true)) {
            function();
        }
        return std::nullopt;
    };
}

AllocationFault::AllocationFault(int nth, const std::function<void()>& function) {
    before = [=, this](Call call, const void* block) -> std::optional<Outcome> {
        const bool meant = allocates(call) && ++attempts == nth;
        if (meant && function == nullptr) {
            return Outcome{ENOMEM};
        }
        if (meant) {
            function();
        }
        taken += allocates(call) ? 1 : 0;
        released += call == Call::free && block != nullptr ? 1 : 0;
        return std::nullopt;
    };
}

}  // namespace support
