#include "service/HeaderFields.h"

#include <algorithm>

namespace cadora::service {

void HeaderFields::add(std::string_view name, std::string_view value) {
    fields_.emplace(lowered(std::string(name)), value);
}

std::vector<std::string> HeaderFields::values(const std::string& name) const {
    std::vector<std::string> all;
    const auto [first, last] = fields_.equal_range(name);
    std::transform(first, last, std::back_inserter(all), [](const auto& field) { return field.second; });
    return all;
}

std::string HeaderFields::value(const std::string& name) const {
    const auto found = fields_.lower_bound(name);
    return found == fields_.end() || found->first != name ? "" : found->second;
}

std::vector<std::string> HeaderFields::names() const {
    std::vector<std::string> all;
    std::transform(fields_.begin(), fields_.end(), std::back_inserter(all),
                   [](const auto& field) { return field.first; });
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
    });
    return text;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

} // namespace cadora::service
