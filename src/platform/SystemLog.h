#pragma once

#include <string>

namespace cadora {

// The system's log. Any thread.
class SystemLog {
public:
    virtual ~SystemLog() = default;

    // Writes one entry. The text is not a format; line breaks in it are shown as such, so that no file name
    // can forge an entry of its own.
    virtual void log(const std::string& line) = 0;
};

} // namespace cadora
