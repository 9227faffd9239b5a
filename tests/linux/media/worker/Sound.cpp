#include "linux/media/worker/Sound.h"

#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Tools.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <numbers>
#include <stdexcept>

namespace cadora::test {

Sound makeMusic(const MusicSettings& settings, std::int64_t frames) {
    Music music(settings);
    const auto channels = static_cast<std::size_t>(settings.channels);
    std::vector<float> samples(static_cast<std::size_t>(frames) * channels);
    music.render(samples.data(), static_cast<int>(frames));
    Sound sound{settings.rate, std::vector<std::vector<float>>(channels)};
    for (std::size_t i = 0; i < samples.size(); ++i) {
        sound.channels[i % channels].push_back(samples[i]);
    }
    return sound;
}

void writeWav(const std::filesystem::path& path, const Sound& sound) {
    const auto channels = static_cast<std::uint32_t>(sound.channels.size());
    const auto rate = static_cast<std::uint32_t>(sound.rate);
    const auto size = static_cast<std::uint32_t>(sound.length()) * channels * 4;
    std::ofstream file(path, std::ios::binary);
    const auto put = [&](std::uint32_t value, int count) {
        file.write(reinterpret_cast<const char*>(&value), count);
    };
    file << "RIFF";
    put(size + 36, 4);
    file << "WAVEfmt ";
    put(16, 4);
    put(3, 2);
    put(channels, 2);
    put(rate, 4);
    put(rate * channels * 4, 4);
    put(channels * 4, 2);
    put(32, 2);
    file << "data";
    put(size, 4);
    std::vector<float> interleaved;
    interleaved.reserve(static_cast<std::size_t>(sound.length()) * channels);
    for (std::size_t i = 0; i < static_cast<std::size_t>(sound.length()); ++i) {
        for (const auto& channel : sound.channels) {
            interleaved.push_back(channel[i]);
        }
    }
    file.write(reinterpret_cast<const char*>(interleaved.data()),
               static_cast<std::streamsize>(interleaved.size() * sizeof(float)));
    if (!file.flush()) {
        throw std::runtime_error("can't write " + path.string());
    }
}

Sound readRawFloats(const std::filesystem::path& path, int rate, int channels) {
    const std::string bytes = readFile(path);
    const auto count = static_cast<std::size_t>(channels);
    Sound sound{rate, std::vector<std::vector<float>>(count)};
    for (std::size_t i = 0; i + 1 <= bytes.size() / sizeof(float); ++i) {
        float value = 0;
        std::memcpy(&value, bytes.data() + i * sizeof(float), sizeof value);
        sound.channels[i % count].push_back(value);
    }
    return sound;
}

namespace {

std::uint64_t bigEndian(const std::string& bytes, std::size_t offset, std::size_t count) {
    if (offset + count > bytes.size()) {
        throw std::runtime_error("a box is too short");
    }
    std::uint64_t value = 0;
    for (std::size_t i = offset; i < offset + count; ++i) {
        value = value << 8 | static_cast<std::uint8_t>(bytes[i]);
    }
    return value;
}

struct Box {
    std::string type;
    std::size_t offset; // of the content
    std::size_t size;
};

std::vector<Box> boxes(const std::string& bytes, std::size_t begin, std::size_t end) {
    std::vector<Box> result;
    while (begin + 8 <= end) {
        std::uint64_t size = bigEndian(bytes, begin, 4);
        std::size_t header = 8;
        if (size == 1) {
            size = bigEndian(bytes, begin + 8, 8);
            header = 16;
        }
        if (size < header || size > end - begin) {
            throw std::runtime_error("a box doesn't fit");
        }
        result.push_back(
            {bytes.substr(begin + 4, 4), begin + header, static_cast<std::size_t>(size) - header});
        begin += static_cast<std::size_t>(size);
    }
    if (begin != end) {
        throw std::runtime_error("rubbish between boxes");
    }
    return result;
}

std::vector<Box> children(const std::string& bytes, const Box& box, std::size_t skip = 0) {
    return boxes(bytes, box.offset + skip, box.offset + box.size);
}

Box child(const std::string& bytes, const Box& box, const std::string& type, std::size_t skip = 0) {
    for (const Box& each : children(bytes, box, skip)) {
        if (each.type == type) {
            return each;
        }
    }
    throw std::runtime_error("no box " + type);
}

bool hasChild(const std::string& bytes, const Box& box, const std::string& type) {
    const auto all = children(bytes, box);
    return std::any_of(all.begin(), all.end(), [&](const Box& each) { return each.type == type; });
}

// The decoder's configuration stands behind descriptor tags 3, 4 and 5.
std::string audioConfigOf(const std::string& bytes, const Box& esds) {
    std::size_t at = esds.offset + 4;
    const auto descriptor = [&](int tag) {
        if (static_cast<std::uint8_t>(bytes.at(at++)) != tag) {
            throw std::runtime_error("an unexpected descriptor");
        }
        std::size_t length = 0;
        std::uint8_t byte = 0;
        do {
            byte = static_cast<std::uint8_t>(bytes.at(at++));
            length = length << 7 | (byte & 0x7fU);
        } while ((byte & 0x80U) != 0);
        return length;
    };
    descriptor(3);
    at += 3;
    descriptor(4);
    at += 13;
    const std::size_t length = descriptor(5);
    return bytes.substr(at, length);
}

constexpr std::array<int, 13> aacRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                          22050, 16000, 12000, 11025, 8000,  7350};

} // namespace

M4aFile::M4aFile(const std::filesystem::path& path) {
    const std::string bytes = readFile(path);
    const Box whole{"", 0, bytes.size()};
    for (const Box& box : children(bytes, whole)) {
        topLevelBoxes.push_back(box.type);
    }
    const Box moov = child(bytes, whole, "moov");
    movieTimescale = static_cast<std::uint32_t>(bigEndian(bytes, child(bytes, moov, "mvhd").offset + 12, 4));
    for (const Box& box : children(bytes, moov)) {
        tracks += box.type == "trak" ? 1 : 0;
    }
    const Box trak = child(bytes, moov, "trak");
    const Box elst = child(bytes, child(bytes, trak, "edts"), "elst");
    if (bigEndian(bytes, elst.offset, 4) != 0 || bigEndian(bytes, elst.offset + 4, 4) != 1) {
        throw std::runtime_error("not a single plain edit");
    }
    editDuration = bigEndian(bytes, elst.offset + 8, 4);
    editStart = static_cast<std::int32_t>(bigEndian(bytes, elst.offset + 12, 4));
    const Box mdia = child(bytes, trak, "mdia");
    mediaTimescale = static_cast<std::uint32_t>(bigEndian(bytes, child(bytes, mdia, "mdhd").offset + 12, 4));
    const Box stbl = child(bytes, child(bytes, mdia, "minf"), "stbl");
    const Box mp4a = child(bytes, child(bytes, stbl, "stsd"), "mp4a", 8);
    audioConfig = audioConfigOf(bytes, child(bytes, mp4a, "esds", 28));
    const Box stts = child(bytes, stbl, "stts");
    for (std::size_t i = 0; i < bigEndian(bytes, stts.offset + 4, 4); ++i) {
        mediaDuration +=
            bigEndian(bytes, stts.offset + 8 + 8 * i, 4) * bigEndian(bytes, stts.offset + 12 + 8 * i, 4);
    }
    const Box stsz = child(bytes, stbl, "stsz");
    std::vector<std::size_t> sizes;
    for (std::size_t i = 0; i < bigEndian(bytes, stsz.offset + 8, 4); ++i) {
        const std::uint64_t same = bigEndian(bytes, stsz.offset + 4, 4);
        sizes.push_back(same != 0 ? same : bigEndian(bytes, stsz.offset + 12 + 4 * i, 4));
    }
    const bool wide = hasChild(bytes, stbl, "co64");
    const Box stco = child(bytes, stbl, wide ? "co64" : "stco");
    const Box stsc = child(bytes, stbl, "stsc");
    const std::size_t chunks = bigEndian(bytes, stco.offset + 4, 4);
    const std::size_t runs = bigEndian(bytes, stsc.offset + 4, 4);
    std::size_t packet = 0;
    for (std::size_t chunk = 0, run = 0; chunk < chunks; ++chunk) {
        while (run + 1 < runs && bigEndian(bytes, stsc.offset + 8 + 12 * (run + 1), 4) <= chunk + 1) {
            ++run;
        }
        const std::size_t width = wide ? 8 : 4;
        std::size_t at = bigEndian(bytes, stco.offset + 8 + width * chunk, width);
        for (std::size_t i = 0; i < bigEndian(bytes, stsc.offset + 12 + 12 * run, 4); ++i, ++packet) {
            if (at + sizes.at(packet) > bytes.size()) {
                throw std::runtime_error("a packet lies behind the end");
            }
            packets.push_back(bytes.substr(at, sizes.at(packet)));
            at += sizes.at(packet);
        }
    }
    if (packet != sizes.size()) {
        throw std::runtime_error("packets without a place");
    }
    if (hasChild(bytes, moov, "udta")) {
        const Box ilst = child(bytes, child(bytes, child(bytes, moov, "udta"), "meta", 0), "ilst", 4);
        for (const Box& item : children(bytes, ilst)) {
            const Box data = child(bytes, item, "data");
            std::string name = item.type;
            if (name == "----") {
                const Box own = child(bytes, item, "name");
                name = bytes.substr(own.offset + 4, own.size - 4);
            }
            tags[name] = bytes.substr(data.offset + 8, data.size - 8);
        }
    }
}

int M4aFile::rate() const {
    const auto first = static_cast<std::uint8_t>(audioConfig.at(0));
    const auto second = static_cast<std::uint8_t>(audioConfig.at(1));
    return aacRates.at((first & 7U) << 1 | second >> 7);
}

int M4aFile::channels() const {
    return static_cast<std::uint8_t>(audioConfig.at(1)) >> 3 & 15;
}

Sound decodeIndependently(const std::filesystem::path& path) {
    const M4aFile file(path);
    const TemporaryDirectory folder;
    const auto raw = folder.path() / "raw.f32";
    runTool({"faad", "-q", "-g", "-f", "2", "-b", "4", "-o", raw.string(), path.string()});
    Sound sound = readRawFloats(raw, file.rate(), 2); // the decoder gives mono on both channels
    sound.channels.resize(static_cast<std::size_t>(file.channels()));
    // It swallows the first frame, which only starts the overlap.
    const std::int64_t begin = file.editStart - 1024;
    if (begin < 0 || begin + file.length() > sound.length()) {
        throw std::runtime_error("the edit list reaches beyond the sound");
    }
    for (auto& channel : sound.channels) {
        channel = std::vector<float>(channel.begin() + begin, channel.begin() + begin + file.length());
    }
    return sound;
}

namespace {

// The libraries talk on standard error otherwise.
[[maybe_unused]] const bool quiet = (av_log_set_level(AV_LOG_QUIET), true);

constexpr int spectrumSize = 4096;

// Power by frequency bin, over the whole sound and all channels.
std::vector<double> spectrum(const Sound& sound) {
    AVTXContext* context = nullptr;
    av_tx_fn transform = nullptr;
    const float scale = 1;
    if (av_tx_init(&context, &transform, AV_TX_FLOAT_FFT, 0, spectrumSize, &scale, 0) < 0) {
        throw std::runtime_error("no transform");
    }
    auto* in = static_cast<AVComplexFloat*>(av_malloc(spectrumSize * sizeof(AVComplexFloat)));
    auto* out = static_cast<AVComplexFloat*>(av_malloc(spectrumSize * sizeof(AVComplexFloat)));
    std::vector<double> power(spectrumSize / 2, 0.0);
    for (const auto& channel : sound.channels) {
        for (std::size_t at = 0; at + spectrumSize <= channel.size(); at += spectrumSize / 2) {
            for (std::size_t i = 0; i < spectrumSize; ++i) {
                const double window =
                    0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / spectrumSize);
                in[i] = {static_cast<float>(window) * channel[at + i], 0};
            }
            transform(context, out, in, sizeof(AVComplexFloat));
            for (std::size_t i = 0; i < power.size(); ++i) {
                power[i] +=
                    static_cast<double>(out[i].re) * out[i].re + static_cast<double>(out[i].im) * out[i].im;
            }
        }
    }
    av_free(in);
    av_free(out);
    av_tx_uninit(&context);
    return power;
}

double decibels(double ratio) {
    return 10 * std::log10(std::max(ratio, 1e-30));
}

} // namespace

Difference compare(const Sound& sound, const Sound& reference) {
    Difference difference;
    const std::int64_t length = std::min(sound.length(), reference.length());
    constexpr std::int64_t furthest = 2048;
    double best = -1;
    // Of the whole, a loud part is enough to find the lag.
    const std::int64_t begin = std::min<std::int64_t>(length / 4, 2 * furthest);
    const std::int64_t end = std::min(length, begin + std::int64_t{reference.rate});
    for (std::int64_t lag = -furthest; lag <= furthest; ++lag) {
        double sum = 0;
        for (std::int64_t i = std::max(begin, -lag); i < std::min(end, sound.length() - lag); ++i) {
            sum += static_cast<double>(sound.channels[0][static_cast<std::size_t>(i + lag)]) *
                   reference.channels[0][static_cast<std::size_t>(i)];
        }
        if (sum > best) {
            best = sum;
            difference.lag = lag;
        }
    }
    double soundPower = 0;
    double referencePower = 0;
    double error = 0;
    for (std::size_t channel = 0; channel < reference.channels.size(); ++channel) {
        for (std::int64_t i = std::max<std::int64_t>(0, -difference.lag);
             i < std::min(length, sound.length() - difference.lag); ++i) {
            const double a = sound.channels[channel][static_cast<std::size_t>(i + difference.lag)];
            const double b = reference.channels[channel][static_cast<std::size_t>(i)];
            soundPower += a * a;
            referencePower += b * b;
            error += (a - b) * (a - b);
        }
    }
    difference.level = decibels(soundPower / referencePower);
    difference.errorRatio = decibels(error / referencePower);
    const std::vector<double> a = spectrum(sound);
    const std::vector<double> b = spectrum(reference);
    double total = 0;
    for (const double power : b) {
        total += power;
    }
    const double highest = std::min(14000.0, 0.4 * reference.rate);
    for (double frequency = 60; frequency < highest; frequency *= std::cbrt(2.0)) {
        const auto bin = [&](double hertz) {
            return static_cast<std::size_t>(hertz * spectrumSize / reference.rate);
        };
        double bandA = 0;
        double bandB = 0;
        for (std::size_t i = bin(frequency); i <= bin(frequency * std::cbrt(2.0)); ++i) {
            bandA += a[i];
            bandB += b[i];
        }
        const double level = decibels(bandA / bandB);
        const bool audible = decibels(bandB / total) > -50;
        if (audible && std::abs(level) > std::abs(difference.worstBand)) {
            difference.worstBand = level;
            difference.worstBandFrequency = frequency;
        }
    }
    return difference;
}

} // namespace cadora::test
