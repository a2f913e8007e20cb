// The fetch of the C++ header, as a module: its calls are those of the shared library, not those of the benchmark.
#include <zulstats.hpp>

extern "C" [[gnu::visibility("default")]] void* cxxOpen(int port) {
    std::error_code code;
    auto* gateway = new zul::Connection(zul::Connection::open("127.0.0.1", port, code));
    return code ? nullptr : gateway;
}

extern "C" [[gnu::visibility("default")]] long cxxFetch(void* gateway) {
    long sum = 0;
    for (const zul::Row& row : static_cast<zul::Connection*>(gateway)->stats()) {
        const std::string_view id = row.id();
        const std::string_view value = row.value();
        sum += static_cast<long>(id.size() + value.size()) + id.back() + value.back();
    }
    return sum;
}

extern "C" [[gnu::visibility("default")]] void cxxClose(void* gateway) {
    delete static_cast<zul::Connection*>(gateway);
}
