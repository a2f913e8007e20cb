#include "plugin.h"

#include <zulstats.hpp>

void setStale(std::error_code& code) {
    code = zul::errc::stale;
}

void throwStale() {
    throw zul::error(zul::errc::stale);
}
