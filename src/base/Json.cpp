#include "base/Json.h"

#include <cmath>
#include <limits>

namespace cadora::json {

namespace {

// Up to here, 2^53, every integer is a real number of its own.
constexpr double largestExactInteger = 9007199254740992.0;
// 2^63, beyond all that an integer holds.
constexpr double integersEnd = 9223372036854775808.0;

template <class Json> std::string compactText(const Json& value) {
    try {
        return value.dump();
    } catch (const nlohmann::json::exception&) {
        throw EncodingError("a text in it is not UTF-8");
    }
}

template <class Json>
[[noreturn]] void wrongType(const std::string& path, const char* expected, const Json& value) {
    throw DecodingError("“" + path + "” must be " + expected + ", not " + value.type_name());
}

template <class Json> Json parsed(std::string_view bytes) {
    try {
        return Json::parse(bytes.begin(), bytes.end());
    } catch (const nlohmann::json::exception& e) {
        // The library's message quotes the input, which may hold what must not be logged.
        if (const auto* syntax = dynamic_cast<const nlohmann::json::parse_error*>(&e)) {
            throw DecodingError("it is not valid JSON (at byte " + std::to_string(syntax->byte) + ")");
        }
        throw DecodingError("a number in it is out of range");
    }
}

} // namespace

Value parse(std::string_view bytes) {
    return parsed<Value>(bytes);
}

Record parseRecord(std::string_view bytes) {
    return parsed<Record>(bytes);
}

std::string write(const Value& value) {
    return compactText(value);
}

std::string write(const Record& record) {
    return compactText(record);
}

Value number(double value) {
    if (!std::isfinite(value)) {
        throw EncodingError("a number in it is not finite");
    }
    const bool integral = std::trunc(value) == value && std::abs(value) <= largestExactInteger;
    const bool negativeZero = value == 0 && std::signbit(value);
    if (integral && !negativeZero) {
        return static_cast<std::int64_t>(value);
    }
    return value;
}

void decode(const Value& value, const std::string& path, std::string& out) {
    if (!value.is_string()) {
        wrongType(path, "a string", value);
    }
    out = value.get_ref<const std::string&>();
}

void decode(const Value& value, const std::string& path, bool& out) {
    if (!value.is_boolean()) {
        wrongType(path, "a boolean", value);
    }
    out = value.get<bool>();
}

void decode(const Value& value, const std::string& path, std::int64_t& out) {
    if (value.is_number_unsigned()) {
        const auto wide = value.get<std::uint64_t>();
        if (wide > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw DecodingError("“" + path + "” does not fit into 64 bits");
        }
        out = static_cast<std::int64_t>(wide);
    } else if (value.is_number_integer()) {
        out = value.get<std::int64_t>();
    } else if (value.is_number_float()) {
        const auto real = value.get<double>();
        if (std::trunc(real) != real || std::abs(real) >= integersEnd) {
            throw DecodingError("“" + path + "” is not an integer of 64 bits");
        }
        out = static_cast<std::int64_t>(real);
    } else {
        wrongType(path, "an integer", value);
    }
}

void decode(const Value& value, const std::string& path, double& out) {
    if (!value.is_number()) {
        wrongType(path, "a number", value);
    }
    out = value.get<double>();
}

void requireObject(const Value& value, const std::string& path) {
    if (!value.is_object()) {
        wrongType(path, "an object", value);
    }
}

void requireObject(const Record& record, const std::string& path) {
    if (!record.is_object()) {
        wrongType(path, "an object", record);
    }
}

void requireArray(const Value& value, const std::string& path) {
    if (!value.is_array()) {
        wrongType(path, "an array", value);
    }
}

} // namespace cadora::json
