#include "hosts/linux/files/TextTemplate.h"

#include "base/Error.h"
#include "hosts/linux/files/DesktopQuoting.h"

#include <algorithm>
#include <optional>

namespace cadora {

namespace {

class UnknownPlace : public Error {
public:
    explicit UnknownPlace(std::string_view place) : place_(place) {}

    std::string text() const override { return "nothing is known to stand for “@" + place_ + "@”"; }

private:
    std::string place_;
};

using Quoting = std::string (*)(std::string_view);

const std::map<std::string_view, Quoting>& quotings() {
    static const std::map<std::string_view, Quoting> known{
        {"shell", shellWord}, {"percent", doubledPercent}, {"exec", execWord}, {"keyfile", keyFileValue},
        {"xml", xmlText},     {"python", pythonString},
    };
    return known;
}

std::string contentOf(std::string_view place, const std::map<std::string_view, std::string>& values) {
    const std::size_t colon = place.find(':');
    const auto value = values.find(place.substr(0, colon));
    if (value == values.end()) {
        throw UnknownPlace(place);
    }
    std::string content = value->second;
    for (std::size_t end = colon; end != std::string_view::npos;) {
        const std::size_t begin = end + 1;
        end = place.find(',', begin);
        const auto quoting = quotings().find(place.substr(begin, end - begin));
        if (quoting == quotings().end()) {
            throw UnknownPlace(place);
        }
        content = quoting->second(content);
    }
    return content;
}

bool isOfPlace(char c) {
    return (c >= 'a' && c <= 'z') || c == ':' || c == ',';
}

// What stands between the signs of the place that the text begins with; absent when it begins with none.
std::optional<std::string_view> placeAt(std::string_view text) {
    const auto end = std::find_if_not(text.begin() + 1, text.end(), isOfPlace);
    const std::string_view place = text.substr(1, static_cast<std::size_t>(end - text.begin()) - 1);
    const bool isClosed = end != text.end() && *end == '@';
    return isClosed && place.find(':') != std::string_view::npos ? std::optional(place) : std::nullopt;
}

} // namespace

std::string filledIn(std::string_view text, const std::map<std::string_view, std::string>& values) {
    std::string result;
    for (std::size_t sign = text.find('@'); sign != std::string_view::npos; sign = text.find('@')) {
        result += text.substr(0, sign);
        text.remove_prefix(sign);
        if (const auto place = placeAt(text)) {
            result += contentOf(*place, values);
            text.remove_prefix(place->size() + 2);
        } else {
            result += '@';
            text.remove_prefix(1);
        }
    }
    return result.append(text);
}

} // namespace cadora
