#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace cadora {

// Random numbers that are the same on every machine.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    double uniform(double low, double high);
    int below(int limit);

private:
    std::uint64_t state_;
};

struct MusicSettings {
    int rate = 44100; // Hz
    int channels = 2; // 1 to 8; from 3 on spread over the loudspeakers in their usual order
    std::uint64_t seed = 1;
};

// Endless music-like sound, made of what is hard to encode in different ways: plucked strings, drums,
// pads, sweeps, a voice-like sound, noise, and rests, in sections of a few seconds that follow one
// another in an order given by the seed. The same settings give the same samples. Peaks stay below 0.9
// of full scale.
class Music {
public:
    static constexpr int maximalChannels = 8;

    // A sound that is added to the mix, one mono sample at a time, until it has died away.
    class Voice {
    public:
        virtual ~Voice() = default;
        virtual float sample() = 0;
        virtual bool ended() const = 0;
    };

    explicit Music(const MusicSettings& settings);

    // The next `frames` frames, channels interleaved.
    void render(float* interleaved, int frames);

private:
    struct Placed {
        std::unique_ptr<Voice> voice;
        std::array<float, maximalChannels> gains;
        int delay; // samples until it begins
    };

    void startSection();
    void startStep();
    void add(std::unique_ptr<Voice> voice, double level, double place, int delay);

    MusicSettings settings_;
    Random random_;
    std::vector<Placed> voices_;
    enum class Texture { band, drums, strings, pad, sweep, speech, noise, rest } texture_ = Texture::band;
    int stepsLeft_ = 0;   // in the section
    int samplesLeft_ = 0; // in the step
    int stepLength_ = 0;
    int step_ = 0;
    double root_ = 110; // Hz
};

} // namespace cadora
