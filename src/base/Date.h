#pragma once

#include <chrono>

namespace cadora {

// A point in time, in seconds since 2001-01-01T00:00:00Z, with fraction.
struct Date {
    double secondsSinceReferenceDate = 0;

    static Date from(std::chrono::system_clock::time_point time) {
        constexpr double unixToReference = 978307200;
        return {std::chrono::duration<double>(time.time_since_epoch()).count() - unixToReference};
    }

    friend bool operator==(const Date&, const Date&) = default;
};

} // namespace cadora
