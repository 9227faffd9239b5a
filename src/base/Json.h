#pragma once

#include "base/Error.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What the program's JSON forms need beyond the library: fields that are required or optional to the
// letter, and numbers written the way the service and earlier versions of the index write them.
// Included by the sources that encode or decode, not by headers.
namespace cadora::json {

// What is read; a key is found by binary search, however many an answer has.
using Value = nlohmann::json;
// A record that is written, its keys in the order in which they were set. For the few keys of our own records
// and files: each is searched for from the first.
using Record = nlohmann::ordered_json;

// The data is not JSON, or not of the expected form. Decoding is all or nothing: whoever catches this
// has no partial value to use.
class DecodingError : public Error {
public:
    explicit DecodingError(std::string reason) : reason_(std::move(reason)) {}
    std::string text() const override { return "The data couldn’t be read: " + reason_; }

private:
    std::string reason_;
};

// The value cannot be written as JSON: a number that is not finite, or text that is not UTF-8.
class EncodingError : public Error {
public:
    explicit EncodingError(std::string reason) : reason_(std::move(reason)) {}
    std::string text() const override { return "The data couldn’t be written: " + reason_; }

private:
    std::string reason_;
};

// The whole of `bytes` as one JSON value; trailing rubbish and invalid UTF-8 are errors.
Value parse(std::string_view bytes);
Record parseRecord(std::string_view bytes);

// Compact text.
std::string write(const Value& value);
std::string write(const Record& record);

// A finite number; an integral one is written without a fraction.
Value number(double value);

// `path` names the place in messages, for example "urls.audio".
void decode(const Value& value, const std::string& path, std::string& out);
void decode(const Value& value, const std::string& path, bool& out);
void decode(const Value& value, const std::string& path, std::int64_t& out);
void decode(const Value& value, const std::string& path, double& out);

void requireObject(const Value& value, const std::string& path);
void requireObject(const Record& record, const std::string& path);
void requireArray(const Value& value, const std::string& path);

template <class T> void decode(const Value& value, const std::string& path, std::vector<T>& out) {
    requireArray(value, path);
    for (const Value& element : value) {
        decode(element, path + "[" + std::to_string(out.size()) + "]", out.emplace_back());
    }
}

template <class T> void decode(const Value& value, const std::string& path, std::map<std::string, T>& out) {
    requireObject(value, path);
    for (const auto& [key, element] : value.items()) {
        std::string place = path;
        place.append(".").append(key);
        decode(element, place, out[key]);
    }
}

// A key that must be there with a value of its type; null counts as missing.
template <class T> T required(const Value& object, const std::string& key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw DecodingError("“" + key + "” is missing");
    }
    T result{};
    decode(*found, key, result);
    return result;
}

// A key that may be missing or null; anything else must have its type.
template <class T> std::optional<T> optional(const Value& object, const std::string& key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return std::nullopt;
    }
    T result{};
    decode(*found, key, result);
    return result;
}

} // namespace cadora::json
