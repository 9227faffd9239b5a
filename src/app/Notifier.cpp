#include "app/Notifier.h"

#include "platform/Platform.h"

#include <cstdint>

namespace cadora {

namespace {

// A random (version 4) UUID in its standard upper-case form.
std::string freshUUID(RandomSource& random) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::uint64_t high = random.next();
    std::uint64_t low = random.next();
    high = (high & 0xFFFFFFFFFFFF0FFFU) | 0x0000000000004000U;
    low = (low & 0x3FFFFFFFFFFFFFFFU) | 0x8000000000000000U;
    std::string uuid;
    for (int i = 0; i < 32; ++i) {
        const std::uint64_t half = i < 16 ? high : low;
        uuid += digits[(half >> (60U - 4U * static_cast<unsigned>(i % 16))) & 0xFU];
        if (i == 7 || i == 11 || i == 15 || i == 19) {
            uuid += '-';
        }
    }
    return uuid;
}

} // namespace

Notifier& Notifier::shared() {
    static Notifier notifier;
    return notifier;
}

void Notifier::requestAuthorization() {
    Platform::current().notificationCenter.requestAuthorization(UserNotificationCenter::alert |
                                                                UserNotificationCenter::sound);
}

void Notifier::post(const std::string& title, const std::string& body) {
    const Platform& platform = Platform::current();
    platform.notificationCenter.add({freshUUID(platform.random), title, body});
}

} // namespace cadora
