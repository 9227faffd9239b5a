// error: is unavailable: introduced in macOS 13.4
#include <format>
#include <string>

std::string text(int status) {
    return std::format("http({})", status);
}
