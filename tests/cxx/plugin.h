// A shared object whose symbols are its own.
#pragma once

#include <system_error>

[[gnu::visibility("default")]] void setStale(std::error_code& code);
[[gnu::visibility("default")]] void throwStale();
