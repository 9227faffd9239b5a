#include "hosts/linux/media/worker/Bounds.h"

#include <algorithm>

namespace cadora {

namespace {

constexpr std::int64_t mebibyte = 1 << 20;

// Twice what a cover, an index or a table that fills the whole file needs once it is unpacked.
std::int64_t unpacked(std::int64_t fileSize, std::int64_t most) {
    constexpr std::int64_t factor = 8;
    return std::min(fileSize, most / factor) * factor;
}

} // namespace

double longestSoundIn(std::int64_t fileSize) {
    constexpr double shortFile = 600;
    constexpr double bytesPerSecond = 16;
    return std::min(longestSound, shortFile + static_cast<double>(fileSize) / bytesPerSecond);
}

std::int64_t measuringTime(std::int64_t fileSize) {
    // The slowest decoder needs about a second for 5 MB.
    constexpr std::int64_t bytesPerSecond = 500000;
    constexpr std::int64_t longest = 3600;
    return std::min(60 + fileSize / bytesPerSecond, longest);
}

std::int64_t exportTime(double seconds) {
    constexpr double slowest = 4; // times as fast as real time
    return 120 + static_cast<std::int64_t>(std::clamp(seconds, 0.0, longestSound) / slowest);
}

std::int64_t longestTime(std::int64_t fileSize) {
    return measuringTime(fileSize) + exportTime(longestSoundIn(fileSize));
}

std::int64_t largestOutput(std::int64_t fileSize) {
    // The densest packing of a sound that isn't silence takes 750 bytes for a second, of which we make 32000.
    constexpr std::int64_t factor = 80;
    constexpr std::int64_t shortFile = 48 * mebibyte;
    const auto longest = static_cast<std::int64_t>(longestSound) * 64000;
    return std::min(fileSize, longest / factor) * factor + shortFile;
}

std::int64_t outputSize(double seconds, std::int64_t fileSize) {
    // Twice the usual bit rate, and an index of eight bytes a packet.
    constexpr double bytesPerSecond = 64000;
    const auto bytes = static_cast<std::int64_t>(std::clamp(seconds, 0.0, longestSound) * bytesPerSecond);
    return std::min(4 * mebibyte + bytes, largestOutput(fileSize));
}

std::int64_t measuringMemory(std::int64_t fileSize) {
    return 96 * mebibyte + unpacked(fileSize, 512 * mebibyte);
}

std::int64_t largestMemory(std::int64_t fileSize) {
    return 320 * mebibyte + unpacked(fileSize, 448 * mebibyte);
}

std::int64_t largestBlock(std::int64_t fileSize) {
    return 32 * mebibyte + unpacked(fileSize, 224 * mebibyte);
}

} // namespace cadora
