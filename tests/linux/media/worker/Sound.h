#pragma once

#include "make-music/WavFile.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace cadora::test {

// Planar samples, 1.0 as full scale.
struct Sound {
    int rate = 0;
    std::vector<std::vector<float>> channels;

    std::int64_t length() const {
        return channels.empty() ? 0 : static_cast<std::int64_t>(channels[0].size());
    }
};

// Music of our own, as the generator gives it.
Sound makeMusic(const MusicSettings& settings, std::int64_t frames);

// A WAV file of 32-bit floats, for exact samples.
void writeWav(const std::filesystem::path& path, const Sound& sound);

// Reads a file of raw interleaved 32-bit floats.
Sound readRawFloats(const std::filesystem::path& path, int rate, int channels);

// An M4A file, read by this test's own eyes.
struct M4aFile {
    explicit M4aFile(const std::filesystem::path& path);

    std::vector<std::string> topLevelBoxes;
    std::uint32_t movieTimescale = 0;
    std::uint32_t mediaTimescale = 0;
    std::uint64_t mediaDuration = 0; // the sum of the packets' durations
    // The only edit, in its own units: the movie's for the duration, the media's for the start.
    std::uint64_t editDuration = 0;
    std::int64_t editStart = 0;
    std::string audioConfig; // the decoder's
    std::vector<std::string> packets;
    std::map<std::string, std::string>
        tags; // by the container's own names, "\xa9nam", or their free ones, "ISRC"
    std::size_t tracks = 0;

    int rate() const;
    int channels() const;
    // The samples that are to be heard.
    std::int64_t length() const { return static_cast<std::int64_t>(editDuration); }
};

// The sound of an M4A file as an independent decoder gives it, cut as the edit list says.
Sound decodeIndependently(const std::filesystem::path& path);

// How a sound differs from what it should be. The two have the same rate and number of channels.
struct Difference {
    std::int64_t lag = 0;          // samples that the sound is late, by the best match
    double level = 0;              // dB that it is louder
    double worstBand = 0;          // dB, the third of an octave whose level differs most
    double worstBandFrequency = 0; // Hz
    double errorRatio = 0;         // dB, error against the signal
};
Difference compare(const Sound& sound, const Sound& reference);

} // namespace cadora::test
