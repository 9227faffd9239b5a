#include "hosts/linux/media/worker/Loudness.h"

#include "hosts/linux/media/worker/AudioSource.h"
#include "hosts/linux/media/worker/PcmReader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace cadora {

float measurePeak(const OpenFile& source, const SourceLength& length) {
    AudioSource sound(source);
    PcmReader reader(sound, length);
    constexpr int blockSize = 4096;
    std::array<float, std::size_t{2} * blockSize> block{};
    const std::array<float*, 2> planes = {block.data(), block.data() + blockSize};
    float peak = 0;
    while (reader.read(planes.data(), blockSize) > 0) {
        // What a shorter last block leaves behind it was there before.
        for (const float sample : block) {
            peak = std::max(peak, std::abs(sample));
        }
    }
    return peak;
}

float gainFor(float peak) {
    constexpr float untouched = 0.95F;
    constexpr float rounding = 0.9999F; // on the way through the encoder's own scale
    return peak > untouched ? untouched * rounding / peak : 1.0F;
}

std::string describeGain(float gain, float peak) {
    const auto decibels = [](float factor) { return 20 * std::log10(static_cast<double>(factor)); };
    std::array<char, 100> text{};
    std::snprintf(text.data(), text.size(), "turned down by %.1f dB, for a peak of %+.1f dB", -decibels(gain),
                  decibels(peak));
    return text.data();
}

} // namespace cadora
