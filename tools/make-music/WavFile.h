#pragma once

#include "make-music/Music.h"

#include <cstdint>
#include <string>

namespace cadora {

enum class SampleFormat { int16, int24, float32 };

struct WavSettings {
    MusicSettings music;
    std::int64_t frames = 0;
    SampleFormat format = SampleFormat::int16;
};

// Writes music into a new WAV file, of at most 4 GiB; an existing file is replaced. Throws
// std::runtime_error.
void writeMusic(const std::string& path, const WavSettings& settings);

} // namespace cadora
