#include "make-music/WavFile.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <vector>

namespace cadora {

namespace {

void append(std::string& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i) {
        bytes += static_cast<char>(value >> (8 * i) & 0xff);
    }
}

int bytesPerSample(SampleFormat format) {
    switch (format) {
    case SampleFormat::int16:
        return 2;
    case SampleFormat::int24:
        return 3;
    case SampleFormat::float32:
        break;
    }
    return 4;
}

std::string header(const WavSettings& settings, std::uint32_t dataSize) {
    const int width = bytesPerSample(settings.format);
    const auto channels = static_cast<std::uint32_t>(settings.music.channels);
    const auto rate = static_cast<std::uint32_t>(settings.music.rate);
    const auto frameSize = channels * static_cast<std::uint32_t>(width);
    std::string bytes = "RIFF";
    append(bytes, dataSize + 36, 4);
    bytes += "WAVEfmt ";
    append(bytes, 16, 4);
    append(bytes, settings.format == SampleFormat::float32 ? 3 : 1, 2);
    append(bytes, channels, 2);
    append(bytes, rate, 4);
    append(bytes, rate * frameSize, 4);
    append(bytes, frameSize, 2);
    append(bytes, static_cast<std::uint32_t>(8 * width), 2);
    bytes += "data";
    append(bytes, dataSize, 4);
    return bytes;
}

void appendSample(std::string& bytes, float sample, SampleFormat format) {
    switch (format) {
    case SampleFormat::int16:
        append(bytes, static_cast<std::uint32_t>(std::lrint(sample * 32767.0F)), 2);
        break;
    case SampleFormat::int24:
        append(bytes, static_cast<std::uint32_t>(std::lrint(sample * 8388607.0F)), 3);
        break;
    case SampleFormat::float32:
        append(bytes, std::bit_cast<std::uint32_t>(sample), 4);
        break;
    }
}

} // namespace

void writeMusic(const std::string& path, const WavSettings& settings) {
    const std::int64_t dataSize = settings.frames * settings.music.channels *
                                  static_cast<std::int64_t>(bytesPerSample(settings.format));
    if (settings.frames < 0 || dataSize > std::numeric_limits<std::uint32_t>::max() - 64) {
        throw std::runtime_error("a WAV file can't be that long");
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << header(settings, static_cast<std::uint32_t>(dataSize));
    Music music(settings.music);
    constexpr int block = 4096;
    std::vector<float> samples(static_cast<std::size_t>(block) *
                               static_cast<std::size_t>(settings.music.channels));
    std::string bytes;
    for (std::int64_t done = 0; done < settings.frames; done += block) {
        const int count = static_cast<int>(std::min<std::int64_t>(block, settings.frames - done));
        music.render(samples.data(), count);
        bytes.clear();
        for (int i = 0; i < count * settings.music.channels; ++i) {
            appendSample(bytes, samples[static_cast<std::size_t>(i)], settings.format);
        }
        file << bytes;
    }
    file.close();
    if (!file) {
        throw std::runtime_error(path + " can't be written");
    }
}

} // namespace cadora
