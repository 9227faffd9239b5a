#include "outbox/VisibilityPreference.h"

#include "platform/Platform.h"

namespace cadora {

std::string VisibilityPreference::current() {
    const auto stored = Platform::current().userDefaults.string(key);
    return stored == subscribersValue ? subscribersValue : privateValue;
}

} // namespace cadora
