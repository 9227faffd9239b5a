#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace cadora {

// What the container's own list of labels has a place for, but FFmpeg's muxer doesn't write. All of it comes
// from a file that may lie, so texts are written anew from what they mean, and pictures are bounded.
struct Labels {
    int beatsPerMinute = 0;                      // 0: not told
    std::map<std::string, std::string> freeform; // by the names that players know: "ISRC"
    std::vector<std::uint8_t> cover;             // a JPEG or PNG file; empty: none
};

constexpr std::size_t largestCover = std::size_t{2} << 20; // bytes

// From the container's tags, whatever their case. What makes no sense is left out. ReplayGain is told of the
// sound after it was turned down by the gain.
Labels labelsFrom(const std::map<std::string, std::string>& tags, float gain);

// Whether these bytes begin as those of a picture that the container can hold, and aren't too many.
bool isCover(std::span<const std::uint8_t> bytes);

// The labels as items of the container's list, one after the other. The last one is for players that ignore
// the edit list: how many samples the decoder gives before the sound, how many behind it, and how long the
// sound is. The size doesn't depend on these numbers.
std::string labelItems(const Labels& labels, std::int64_t before, std::int64_t behind, std::int64_t samples);

} // namespace cadora
