#include "hosts/linux/media/worker/Answer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace cadora {

namespace {

std::string number(double value) {
    if (!std::isfinite(value)) {
        return "null";
    }
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    return end.ec == std::errc() ? std::string(text.data(), end.ptr) : "null";
}

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
            result += escape.data();
        } else {
            result += c;
        }
    }
    return result + '"';
}

} // namespace

std::string lengthAnswer(const SourceLength& length) {
    return "{\"seconds\":" + number(length.seconds()) + "}\n";
}

std::string exportAnswer(const ExportResult& result) {
    const double seconds = static_cast<double>(result.samples) / result.rate;
    return "{\"seconds\":" + number(seconds) + ",\"samples\":" + std::to_string(result.samples) +
           ",\"rate\":" + std::to_string(result.rate) + "}\n";
}

std::string errorAnswer(const ExportError& error) {
    return "{\"error\":{\"code\":" + std::to_string(static_cast<int>(error.failure())) +
           ",\"message\":" + quoted(error.message()) + "}}\n";
}

} // namespace cadora
