#include "hosts/linux/media/worker/CafPacketTable.h"

#include <array>
#include <cstring>
#include <span>
#include <unistd.h>

namespace cadora {

namespace {

bool readAt(const OpenFile& file, std::int64_t offset, std::span<unsigned char> bytes) {
    return pread(file.descriptor, bytes.data(), bytes.size(), offset) == static_cast<ssize_t>(bytes.size());
}

std::uint64_t bigEndian(std::span<const unsigned char> bytes) {
    std::uint64_t value = 0;
    for (const unsigned char byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

bool isType(std::span<const unsigned char> bytes, const char* type) {
    return std::memcmp(bytes.data(), type, 4) == 0;
}

} // namespace

std::optional<CafPacketTable> readCafPacketTable(const OpenFile& file) {
    std::array<unsigned char, 8> head{};
    if (!readAt(file, 0, head) || !isType(head, "caff")) {
        return std::nullopt;
    }
    constexpr int mostChunks = 1000;
    std::int64_t offset = head.size();
    for (int i = 0; i < mostChunks; ++i) {
        std::array<unsigned char, 12> chunk{};
        if (!readAt(file, offset, chunk)) {
            return std::nullopt;
        }
        offset += static_cast<std::int64_t>(chunk.size());
        if (isType(chunk, "pakt")) {
            std::array<unsigned char, 24> table{};
            if (!readAt(file, offset, table)) {
                return std::nullopt;
            }
            const std::span<const unsigned char> bytes(table);
            const auto valid = static_cast<std::int64_t>(bigEndian(bytes.subspan(8, 8)));
            const auto priming = static_cast<std::int32_t>(bigEndian(bytes.subspan(16, 4)));
            constexpr std::int64_t longest = std::int64_t{1} << 48;
            if (valid <= 0 || valid > longest || priming < 0) {
                return std::nullopt;
            }
            return CafPacketTable{valid, priming};
        }
        const auto size =
            static_cast<std::int64_t>(bigEndian(std::span<const unsigned char>(chunk).subspan(4, 8)));
        if (size < 0 || size > file.size - offset) {
            return std::nullopt; // the sound's own chunk may be open-ended; then nothing follows it
        }
        offset += size;
    }
    return std::nullopt;
}

} // namespace cadora
