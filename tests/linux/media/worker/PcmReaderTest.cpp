#include "hosts/linux/media/worker/PcmReader.h"

#include "fakes/TemporaryDirectory.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "hosts/linux/media/worker/Loudness.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

using namespace cadora;
using namespace cadora::test;

namespace {

enum class Gain { none, asExported };

// What the encoder is given of a WAV file with these samples.
Sound read(const Sound& sound, Gain gain = Gain::none) {
    const TemporaryDirectory folder;
    const auto path = folder.path() / "source.wav";
    writeWav(path, sound);
    const OpenedFile file(path, OpenedFile::Use::read);
    AudioSource source(file.source());
    const SourceLength length = measureSource(file.source());
    PcmReader reader(source, length, gain == Gain::none ? 1.0F : gainFor(measurePeak(file.source(), length)));
    const auto channels = static_cast<std::size_t>(reader.format().channels);
    Sound result{reader.format().rate, std::vector<std::vector<float>>(channels)};
    std::vector<float> block(2000);
    const std::array<float*, 2> planes = {block.data(), block.data() + 1000};
    while (const int count = reader.read(planes.data(), 1000)) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            result.channels[channel].insert(result.channels[channel].end(), planes[channel],
                                            planes[channel] + count);
        }
    }
    return result;
}

Sound constant(int rate, const std::vector<float>& levels, std::size_t samples) {
    Sound sound{rate, {}};
    for (const float level : levels) {
        sound.channels.emplace_back(samples, level);
    }
    return sound;
}

} // namespace

TEST_CASE("a rate that AAC has is kept up to 48 kHz, others become the next one") {
    struct Case {
        int rate;
        int expected;
    };
    for (const auto& [rate, expected] : {Case{7350, 7350},
                                         {8000, 8000},
                                         {22050, 22050},
                                         {44100, 44100},
                                         {48000, 48000},
                                         {4000, 7350},
                                         {37800, 44100},
                                         {44101, 48000},
                                         {50000, 48000},
                                         {64000, 48000},
                                         {88200, 44100},
                                         {96000, 48000},
                                         {176400, 44100},
                                         {192000, 48000},
                                         {384000, 48000}}) {
        CAPTURE(rate);
        CHECK(pcmFormatFor(rate, 2).rate == expected);
    }
    CHECK(pcmFormatFor(44100, 1).channels == 1);
    CHECK(pcmFormatFor(44100, 2).channels == 2);
    CHECK(pcmFormatFor(44100, 6).channels == 2);
}

TEST_CASE("samples that need no conversion are given as they are, louder than full scale too") {
    const Sound sound = read({44100, {{0.25F, -0.5F, 1.5F, -3.0F, 0.0F}, {1e-6F, 1.0F, -1.0F, 0.1F, 0.2F}}});
    CHECK(sound.channels == std::vector<std::vector<float>>{{0.25F, -0.5F, 1.5F, -3.0F, 0.0F},
                                                            {1e-6F, 1.0F, -1.0F, 0.1F, 0.2F}});
}

TEST_CASE("what isn't a number becomes silence, and the infinite is bounded") {
    const float none = std::numeric_limits<float>::quiet_NaN();
    const float infinite = std::numeric_limits<float>::infinity();
    const Sound sound = read({44100, {{none, infinite, -infinite, 0.5F}}});
    CHECK(sound.channels[0] == std::vector<float>{0.0F, 1024.0F, -1024.0F, 0.5F});
}

TEST_CASE("channels without a known place alternate between left and right, and never clip") {
    for (const std::size_t channels : {3U, 4U, 6U, 8U, 9U, 12U, 16U}) {
        CAPTURE(channels);
        const Sound sound = read(constant(44100, std::vector<float>(channels, 1.0F), 3000), Gain::asExported);
        REQUIRE(sound.channels.size() == 2);
        REQUIRE(sound.length() == 3000);
        for (const auto& channel : sound.channels) {
            const auto [low, high] = std::minmax_element(channel.begin(), channel.end());
            CHECK(*high <= 1.0001F);
            CHECK(*low > 0.2F);
        }
    }
}

TEST_CASE("a resampled sound has the length of its source to the nearest sample") {
    for (const std::size_t samples : {1U, 2U, 3U, 1000U, 95999U, 96000U, 96001U}) {
        CAPTURE(samples);
        CHECK(read(constant(96000, {0.5F}, samples)).length() ==
              static_cast<std::int64_t>((samples + 1) / 2));
    }
}
