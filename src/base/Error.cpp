#include "base/Error.h"

#include <utility>

namespace cadora {

const char* Error::what() const noexcept {
    try {
        what_ = text();
        return what_.c_str();
    } catch (...) {
        return "error";
    }
}

PlatformError::PlatformError(std::string domain, long long code, std::string message)
    : domain_(std::move(domain)), code_(code), message_(std::move(message)) {}

std::string caseText(const char* name, long long payload) {
    return std::string(name) + "(" + std::to_string(payload) + ")";
}

std::string caseText(const char* name, const std::string& payload) {
    std::string quoted;
    for (const char c : payload) {
        switch (c) {
        case '"':
            quoted += "\\\"";
            break;
        case '\\':
            quoted += "\\\\";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\r':
            quoted += "\\r";
            break;
        case '\t':
            quoted += "\\t";
            break;
        default:
            quoted += c;
        }
    }
    return std::string(name) + "(\"" + quoted + "\")";
}

namespace {

std::string unboundedText(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const Error& known) {
        return known.text();
    } catch (const std::exception& other) {
        return other.what();
    } catch (...) {
        return "unknown error";
    }
}

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

} // namespace

std::string errorText(const std::exception_ptr& error) {
    std::string text = unboundedText(error);
    if (text.size() > longestErrorText) {
        std::size_t end = longestErrorText;
        while (end > 0 && continuesCharacter(text[end])) {
            --end;
        }
        text.replace(end, std::string::npos, "…");
    }
    return text;
}

} // namespace cadora
