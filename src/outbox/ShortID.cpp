#include "outbox/ShortID.h"

#include "platform/Platform.h"

#include <cstdint>
#include <string_view>

namespace cadora {

namespace {

// The 128-bit product of `a` and `b`, in two halves; `b` is below 2^32.
struct Product {
    std::uint64_t high;
    std::uint64_t low;
};

Product multiply(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t lowPart = (a & 0xFFFFFFFFU) * b;
    const std::uint64_t highPart = (a >> 32U) * b + (lowPart >> 32U);
    return {highPart >> 32U, (highPart << 32U) | (lowPart & 0xFFFFFFFFU)};
}

// Uniform in 0 to count - 1: the random values that would make some results likelier are drawn again.
std::uint64_t uniformIndex(RandomSource& random, std::uint64_t count) {
    const std::uint64_t surplus = (0 - count) % count; // 2^64 mod count
    Product product{};
    do {
        product = multiply(random.next(), count);
    } while (product.low < surplus);
    return product.high;
}

} // namespace

const std::vector<char>& ShortID::alphabet() {
    static const std::vector<char> characters = [] {
        constexpr std::string_view text = "abcdefghijklmnopqrstuvwxyz0123456789";
        return std::vector<char>(text.begin(), text.end());
    }();
    return characters;
}

std::string ShortID::generate() {
    constexpr int length = 8;
    RandomSource& random = Platform::current().random;
    std::string id;
    for (int i = 0; i < length; ++i) {
        id += alphabet()[uniformIndex(random, alphabet().size())];
    }
    return id;
}

} // namespace cadora
