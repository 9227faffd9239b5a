#include "platform/URLSession.h"

#include "base/ASCII.h"

#include <algorithm>

namespace cadora {

namespace {

constexpr std::size_t maximumHeaderSize = std::size_t{512} * 1024;

bool isFieldValue(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte == '\t' || (byte >= 0x20 && byte != 0x7F);
    });
}

} // namespace

void HTTPHeaderFields::setValue(std::string value, std::string field) {
    const auto [known, isNew] = positions_.try_emplace(lowercased(field), fields_.size());
    if (isNew) {
        fields_.emplace_back(std::move(field), std::move(value));
    } else {
        fields_[known->second] = {std::move(field), std::move(value)};
    }
}

std::optional<std::string> HTTPHeaderFields::value(std::string_view field) const {
    const auto known = positions_.find(lowercased(field));
    return known == positions_.end() ? std::nullopt : std::optional(fields_[known->second].second);
}

bool HTTPHeaderFields::areSendable() const {
    std::size_t size = 0;
    return std::all_of(fields_.begin(), fields_.end(), [&size](const auto& field) {
        size += field.first.size() + field.second.size();
        return size <= maximumHeaderSize && isHTTPToken(field.first) && isFieldValue(field.second);
    });
}

bool isHTTPToken(std::string_view text) {
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               marks.find(c) != std::string_view::npos;
    });
}

} // namespace cadora
