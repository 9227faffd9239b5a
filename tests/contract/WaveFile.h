#pragma once

#include <cstdint>
#include <string>

namespace cadora::test {

// A WAVE file of 16-bit mono silence at 44.1 kHz, or its header alone.
inline std::string waveHeader(std::uint32_t samples) {
    const auto number = [](std::uint32_t value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i) {
            text += static_cast<char>(value >> (8U * static_cast<unsigned>(i)) & 0xFFU);
        }
        return text;
    };
    return "RIFF" + number(36 + 2 * samples, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) + number(1, 2) +
           number(44100, 4) + number(88200, 4) + number(2, 2) + number(16, 2) + "data" +
           number(2 * samples, 4);
}

inline std::string waveFile(std::uint32_t samples) {
    return waveHeader(samples) + std::string(std::size_t{2} * samples, '\0');
}

} // namespace cadora::test
