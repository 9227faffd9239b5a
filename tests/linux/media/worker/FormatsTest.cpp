#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

using namespace cadora;
using namespace cadora::test;

// The whole worker on every format, made by others' encoders and judged by another's decoder.
namespace {

// Not a whole number of any codec's frames.
constexpr std::int64_t frames = 300007;

// What a format may do to the sound. Our own encoder alone is within 0.06 dB, 0.2 dB and -20 dB.
struct Expected {
    std::int64_t lag = 0;   // samples that nothing in the file accounts for
    std::int64_t extra = 0; // samples beyond the material's
    double level = 0.1;     // dB
    double band = 0.6;      // dB
    double error = -18;     // dB, against the signal
};

constexpr Expected asItWas{};

class Corpus {
public:
    explicit Corpus(const MusicSettings& settings = {}) : material_(makeMusic(settings, frames)) {
        writeWav(path("material.wav"), material_);
    }

    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
    const Sound& material() const { return material_; }

    // Makes a file of the material with ffmpeg.
    std::string encode(const std::string& name, const std::vector<std::string>& options,
                       const std::vector<std::string>& inputs = {}) const {
        std::vector<std::string> command = {"ffmpeg", "-nostdin", "-v", "error", "-y"};
        command.insert(command.end(), inputs.begin(), inputs.end());
        command.insert(command.end(), {"-i", path("material.wav")});
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(path(name));
        runTool(command);
        return name;
    }

    void check(const std::string& name, const Expected& expected) const { check(name, expected, material_); }

    void check(const std::string& name, const Expected& expected, const Sound& reference) const {
        CAPTURE(name);
        const std::string output = path("out.m4a");
        const WorkerEnd end = runExport(path(name), output);
        CAPTURE(end.answer);
        REQUIRE(end.exitCode == 0);
        const std::int64_t length = reference.length() + expected.extra;
        CHECK(end.number("samples").value_or(0) == static_cast<double>(length));
        CHECK(end.number("rate").value_or(0) == reference.rate);
        const M4aFile file(output);
        REQUIRE(file.length() == length);
        CHECK(file.movieTimescale == static_cast<std::uint32_t>(reference.rate));
        CHECK(file.mediaDuration == static_cast<std::uint64_t>(length) + 1024);
        CHECK(file.channels() == static_cast<int>(reference.channels.size()));
        const Difference difference = compare(decodeIndependently(output), reference);
        CHECK(difference.lag == expected.lag);
        CHECK(std::abs(difference.level) <= expected.level);
        CAPTURE(difference.worstBandFrequency);
        CHECK(std::abs(difference.worstBand) <= expected.band);
        CHECK(difference.errorRatio <= expected.error);
        const WorkerEnd duration = runDuration(path(name));
        CHECK(std::abs(duration.number("seconds").value_or(0) * reference.rate -
                       static_cast<double>(length)) < 1);
    }

private:
    TemporaryDirectory folder_;
    Sound material_;
};

// What is expected of a resampled source: its sound by another resampler.
Sound resampled(const Corpus& corpus, int rate) {
    const std::string raw = corpus.path("resampled.f32");
    runTool({"sox", corpus.path("material.wav"), "-t", "f32", raw, "rate", "-v", std::to_string(rate)});
    return readRawFloats(raw, rate, static_cast<int>(corpus.material().channels.size()));
}

} // namespace

TEST_CASE("WAV files of every depth keep their length, place, level and colour") {
    const Corpus corpus;
    for (const char* codec : {"pcm_u8", "pcm_s16le", "pcm_s24le", "pcm_s32le", "pcm_f32le", "pcm_f64le"}) {
        corpus.check(corpus.encode(std::string(codec) + ".wav", {"-c:a", codec}), asItWas);
    }
}

TEST_CASE("uncommon WAV files keep their length, place, level and colour") {
    const Corpus corpus;
    for (const char* codec : {"pcm_alaw", "pcm_mulaw"}) {
        corpus.check(corpus.encode(std::string(codec) + ".wav", {"-c:a", codec}), asItWas);
    }
    corpus.check(corpus.encode("rf64.wav", {"-c:a", "pcm_s16le", "-rf64", "always"}), asItWas);
    // Its blocks are always full.
    corpus.check(corpus.encode("adpcm.wav", {"-c:a", "adpcm_ms"}), {.extra = 557});
}

TEST_CASE("AIFF, AIFC, AU and CAF files keep their length, place, level and colour") {
    const Corpus corpus;
    corpus.check(corpus.encode("big.aiff", {"-c:a", "pcm_s16be"}), asItWas);
    corpus.check(corpus.encode("deep.aiff", {"-c:a", "pcm_s24be"}), asItWas);
    corpus.check(corpus.encode("little.aifc", {"-f", "aiff", "-c:a", "pcm_s16le"}), asItWas);
    corpus.check(corpus.encode("float.aifc", {"-f", "aiff", "-c:a", "pcm_f32be"}), asItWas);
    corpus.check(corpus.encode("big.au", {"-c:a", "pcm_s16be"}), asItWas);
    corpus.check(corpus.encode("float.au", {"-c:a", "pcm_f32be"}), asItWas);
    corpus.check(corpus.encode("plain.caf", {"-c:a", "pcm_s16le"}), asItWas);
    corpus.check(corpus.encode("float.caf", {"-c:a", "pcm_f32le"}), asItWas);
    corpus.check(corpus.encode("alac.caf", {"-c:a", "alac"}), asItWas);
}

TEST_CASE("FLAC and Ogg files keep their length, place, level and colour") {
    const Corpus corpus;
    corpus.check(corpus.encode("plain.flac", {"-sample_fmt", "s16"}), asItWas);
    corpus.check(corpus.encode("deep.flac", {"-sample_fmt", "s32"}), asItWas);
    corpus.check(corpus.encode("flac.ogg", {"-c:a", "flac"}), asItWas);
    corpus.check(corpus.encode("vorbis.ogg", {"-c:a", "libvorbis", "-q:a", "9"}), asItWas);
    // Opus knows 48 kHz alone.
    const Corpus at48({.rate = 48000});
    at48.check(at48.encode("opus.opus", {"-c:a", "libopus", "-b:a", "320k"}), {.error = -15});
}

TEST_CASE("MP3 and AAC files keep their length and place as far as they tell them") {
    const Corpus corpus;
    corpus.check(corpus.encode("constant.mp3", {"-b:a", "320k"}), asItWas);
    corpus.check(corpus.encode("variable.mp3", {"-q:a", "0"}), asItWas);
    // Without a header of its own, the encoder's delay and padding are part of the sound.
    const Expected unknownDelay{.lag = 1105, .extra = 301824 - frames};
    corpus.check(corpus.encode("bare.mp3", {"-b:a", "320k", "-write_xing", "0"}), unknownDelay);
    corpus.check(corpus.encode("bare-variable.mp3", {"-q:a", "0", "-write_xing", "0"}), unknownDelay);
    corpus.check(corpus.encode("stream.aac", {"-b:a", "320k"}), {.lag = 1024, .extra = 301056 - frames});
    // The movie's ticks of 1 ms round its edit list.
    corpus.check(corpus.encode("aac.m4a", {"-b:a", "320k"}), asItWas);
    corpus.check(corpus.encode("exact.m4a", {"-b:a", "320k", "-movie_timescale", "44100"}), asItWas);
    corpus.check(corpus.encode("alac.m4a", {"-c:a", "alac"}), asItWas);
}

TEST_CASE("the sound of a video is exported, its pictures aren't") {
    const Corpus corpus;
    const std::vector<std::string> pictures = {"-f", "lavfi", "-i", "testsrc=size=64x64:rate=10:duration=7"};
    const auto video = [&](const std::string& name, const std::vector<std::string>& sound) {
        std::vector<std::string> options = {"-c:v", "mpeg4"};
        options.insert(options.end(), sound.begin(), sound.end());
        return corpus.encode(name, options, pictures);
    };
    corpus.check(video("aac.mp4", {"-c:a", "aac", "-b:a", "320k"}), asItWas);
    corpus.check(video("plain.mov", {"-c:a", "pcm_s16le"}), asItWas);
    corpus.check(video("flac.mkv", {"-c:a", "flac"}), asItWas);
    corpus.check(video("plain.avi", {"-c:a", "pcm_s16le"}), asItWas);
    CHECK(M4aFile(corpus.path("out.m4a")).tracks == 1);
}

TEST_CASE("our own M4A is exported again with the same length") {
    const Corpus corpus;
    REQUIRE(runExport(corpus.path("material.wav"), corpus.path("first.m4a")).exitCode == 0);
    corpus.check("first.m4a", asItWas);
}

TEST_CASE("mono stays mono") {
    const Corpus corpus({.channels = 1});
    corpus.check("material.wav", asItWas);
    corpus.check(corpus.encode("mono.mp3", {"-b:a", "160k"}),
                 {.level = 0.6, .band = 0.7, .error = -17}); // it is 0.5 dB quieter
}

TEST_CASE("a sample rate that AAC has is kept") {
    for (const int rate : {8000, 11025, 16000, 22050, 32000, 48000}) {
        const Corpus corpus({.rate = rate});
        corpus.check("material.wav", asItWas);
    }
}

TEST_CASE("a higher or an odd sample rate is resampled in its place") {
    struct Case {
        int rate;
        int to;
    };
    for (const auto& [rate, to] : {Case{96000, 48000}, {88200, 44100}, {192000, 48000}, {37800, 44100}}) {
        const Corpus corpus({.rate = rate});
        corpus.check("material.wav", asItWas, resampled(corpus, to));
    }
}

TEST_CASE("more than two channels fold down to stereo by the standard coefficients") {
    const Corpus corpus({.rate = 48000, .channels = 6});
    const auto& in = corpus.material().channels;
    Sound folded{48000, std::vector<std::vector<float>>(2)};
    const double half = std::sqrt(0.5);
    float peak = 0;
    for (std::size_t side = 0; side < 2; ++side) {
        for (std::size_t i = 0; i < in[0].size(); ++i) {
            // Front, centre, nothing of the low-frequency effects, back.
            const double sum = in[side][i] + half * in[2][i] + half * in[4 + side][i];
            folded.channels[side].push_back(static_cast<float>(sum));
            peak = std::max(peak, std::abs(folded.channels[side].back()));
        }
    }
    // No further down than clipping demands.
    REQUIRE(peak > 0.5F);
    if (peak > 0.95F) {
        for (auto& channel : folded.channels) {
            std::for_each(channel.begin(), channel.end(), [peak](float& sample) { sample *= 0.95F / peak; });
        }
    }
    corpus.check(corpus.encode("surround.wav", {"-c:a", "pcm_s24le", "-channel_layout", "5.1"}), asItWas,
                 folded);
    corpus.check(corpus.encode("surround.flac", {"-channel_layout", "5.1"}), asItWas, folded);
}
