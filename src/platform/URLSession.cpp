#include "platform/URLSession.h"

#include "base/ASCII.h"

#include <algorithm>

namespace cadora {

void HTTPHeaderFields::setValue(std::string value, std::string field) {
    const auto found = std::find_if(fields_.begin(), fields_.end(),
                                    [&](const auto& known) { return equalIgnoringCase(known.first, field); });
    if (found == fields_.end()) {
        fields_.emplace_back(std::move(field), std::move(value));
    } else {
        *found = {std::move(field), std::move(value)};
    }
}

std::optional<std::string> HTTPHeaderFields::value(std::string_view field) const {
    for (const auto& [name, value] : fields_) {
        if (equalIgnoringCase(name, field)) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace cadora
