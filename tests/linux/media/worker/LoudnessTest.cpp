#include "hosts/linux/media/worker/Loudness.h"

#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

using namespace cadora;
using namespace cadora::test;

namespace {

constexpr int rate = 44100;

double decibels(double factor) {
    return 20 * std::log10(factor);
}

// A chord that swells and fades, so that only some frames reach the peak; the encoder is exact about it.
Sound swellingChord(float peak) {
    constexpr std::size_t length = 3 * rate;
    Sound sound{rate, {std::vector<float>(length), std::vector<float>(length)}};
    float highest = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const double time = 2 * std::numbers::pi * static_cast<double>(i) / rate;
        const double swell = 0.6 - 0.4 * std::cos(2 * time);
        const double chord = std::sin(220 * time) + 0.6 * std::sin(277 * time) + 0.5 * std::sin(330 * time);
        sound.channels[0][i] = static_cast<float>(swell * chord);
        highest = std::max(highest, std::abs(sound.channels[0][i]));
    }
    for (float& sample : sound.channels[0]) {
        sample *= peak / highest;
    }
    sound.channels[1] = sound.channels[0];
    return sound;
}

enum class Exporter { ours, ffmpeg };

Sound exported(const Sound& sound, Exporter exporter = Exporter::ours) {
    const TemporaryDirectory folder;
    const auto source = folder.path() / "source.wav";
    const auto output = folder.path() / "out.m4a";
    writeWav(source, sound);
    if (exporter == Exporter::ours) {
        REQUIRE(runExport(source, output).exitCode == 0);
    } else {
        runTool({"ffmpeg", "-nostdin", "-v", "error", "-i", source.string(), "-c:a", "aac", "-b:a", "256k",
                 "-movie_timescale", std::to_string(rate), output.string()});
    }
    return decodeIndependently(output);
}

// By how many dB each piece of the sound is louder.
std::vector<double> gains(const Sound& sound, const Sound& reference) {
    constexpr std::size_t piece = 1024;
    std::vector<double> result;
    for (std::size_t at = 0; at + piece <= reference.channels[0].size(); at += piece) {
        double product = 0;
        double power = 0;
        for (std::size_t i = at; i < at + piece; ++i) {
            product += static_cast<double>(sound.channels[0][i]) * reference.channels[0][i];
            power += static_cast<double>(reference.channels[0][i]) * reference.channels[0][i];
        }
        result.push_back(decibels(product / power));
    }
    return result;
}

// A tone that is as loud from its first sample on as it will be.
Sound suddenTone(double frequency, double phase) {
    Sound sound{rate, {std::vector<float>(8192), std::vector<float>(8192)}};
    for (std::size_t i = 0; i < sound.channels[0].size(); ++i) {
        const double angle = phase + 2 * std::numbers::pi * frequency * static_cast<double>(i) / rate;
        sound.channels[0][i] = static_cast<float>(0.3 * std::cos(angle) + 0.1 * std::cos(3 * angle));
        sound.channels[1][i] = static_cast<float>(0.2 * std::sin(angle));
    }
    return sound;
}

} // namespace

namespace {

struct Beginnings {
    double medianError = 0; // dB, of the first frame against the sound
    int lost = 0;           // those of which a piece is missing
};

Beginnings beginnings(Exporter exporter) {
    std::vector<double> errors;
    int lost = 0;
    for (int i = 0; i < 11; ++i) {
        const Sound sound = suddenTone(110 + 97 * i, 0.3 * i);
        const Sound result = exported(sound, exporter);
        double power = 0;
        double error = 0;
        double worstPiece = 0;
        for (std::size_t at = 0; at < 1024; at += 128) {
            double pieceError = 0;
            double piecePower = 0;
            for (std::size_t k = at; k < at + 128; ++k) {
                const double difference = result.channels[0][k] - sound.channels[0][k];
                pieceError += difference * difference;
                piecePower += static_cast<double>(sound.channels[0][k]) * sound.channels[0][k];
            }
            worstPiece = std::max(worstPiece, pieceError / piecePower);
            error += pieceError;
            power += piecePower;
        }
        lost += worstPiece > 0.5 ? 1 : 0;
        errors.push_back(decibels(std::sqrt(error / power)));
    }
    std::sort(errors.begin(), errors.end());
    return {errors[errors.size() / 2], lost};
}

} // namespace

TEST_CASE("a sound that begins at once is whole from its first sample on") {
    const Beginnings ours = beginnings(Exporter::ours);
    MESSAGE("error of the first frame: ", ours.medianError, " dB");
    CHECK(ours.medianError <= -35);
    CHECK(ours.lost == 0);
    // The measure does find what is wrong with an encoder that is left to itself.
    const Beginnings control = beginnings(Exporter::ffmpeg);
    MESSAGE("of the control: ", control.medianError, " dB, lost ", control.lost);
    CHECK(control.medianError > -20);
    CHECK(control.lost > 0);
}

TEST_CASE("a sound above full scale is turned down as a whole, and not frame by frame") {
    for (const float peak : {1.0F, 1.412F, 2.0F}) {
        CAPTURE(peak);
        const Sound sound = swellingChord(peak);
        std::vector<double> all = gains(exported(sound), sound);
        std::sort(all.begin(), all.end());
        const double expected = decibels(0.95 / peak);
        MESSAGE("gains from ", all.front(), " to ", all.back(), " dB, expected ", expected);
        CHECK(std::abs(all[all.size() / 2] - expected) <= 0.02);
        CHECK(all.back() - all.front() <= 0.1);
        std::vector<double> control = gains(exported(sound, Exporter::ffmpeg), sound);
        std::sort(control.begin(), control.end());
        MESSAGE("of the control: ", control.front(), " to ", control.back(), " dB");
        CHECK(control.back() - control.front() > 0.3);
    }
}

TEST_CASE("a sound that leaves the encoder its room stays as loud as it is") {
    const Sound sound = swellingChord(0.94F);
    const std::vector<double> all = gains(exported(sound), sound);
    CHECK(std::abs(*std::max_element(all.begin(), all.end())) <= 0.1);
    CHECK(gainFor(0.95F) == 1.0F);
    CHECK(gainFor(0.0F) == 1.0F);
}

TEST_CASE("the peak is that of the encoder's input, in whatever part of the source counts") {
    const TemporaryDirectory folder;
    const auto path = folder.path() / "source.wav";
    Sound sound{rate, {std::vector<float>(10001, 0.1F), std::vector<float>(10001, -0.2F)}};
    sound.channels[1].back() = -1.75F;
    writeWav(path, sound);
    const OpenedFile file(path, OpenedFile::Use::read);
    CHECK(measurePeak(file.source(), measureSource(file.source())) == 1.75F);
}

TEST_CASE("a gain is described in decibels") {
    CHECK(describeGain(gainFor(2.0F), 2.0F) == "turned down by 6.5 dB, for a peak of +6.0 dB");
}
