#include "make-music/Music.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace cadora {

std::uint64_t Random::next() {
    // splitmix64
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15U);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31);
}

double Random::uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(next() >> 11) * 0x1p-53;
}

int Random::below(int limit) {
    return static_cast<int>(next() % static_cast<std::uint64_t>(limit));
}

namespace {

constexpr double pi = std::numbers::pi;

// White noise cheap enough for every sample, -1 to 1.
class Noise {
public:
    explicit Noise(std::uint64_t seed) : state_(static_cast<std::uint32_t>(seed) | 1U) {}

    float sample() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<float>(static_cast<std::int32_t>(state_)) * 0x1p-31F;
    }

private:
    std::uint32_t state_;
};

// A sine by rotation: one multiplication of complex numbers per sample.
class Rotor {
public:
    Rotor(double frequency, int rate, double phase = 0)
        : cosine_(std::cos(phase)), sine_(std::sin(phase)), stepCosine_(std::cos(2 * pi * frequency / rate)),
          stepSine_(std::sin(2 * pi * frequency / rate)) {}

    float sample() {
        const double c = cosine_ * stepCosine_ - sine_ * stepSine_;
        sine_ = cosine_ * stepSine_ + sine_ * stepCosine_;
        cosine_ = c;
        return static_cast<float>(sine_);
    }

private:
    double cosine_, sine_, stepCosine_, stepSine_;
};

// A two-pole resonance.
class Resonance {
public:
    Resonance(double frequency, double width, int rate) {
        const double r = std::exp(-pi * width / rate);
        a_ = static_cast<float>(2 * r * std::cos(2 * pi * frequency / rate));
        b_ = static_cast<float>(-r * r);
        gain_ = static_cast<float>(1 - r);
    }

    float filter(float x) {
        const float y = gain_ * x + a_ * y1_ + b_ * y2_;
        y2_ = y1_;
        y1_ = y;
        return y;
    }

private:
    float a_, b_, gain_, y1_ = 0, y2_ = 0;
};

float decayPerSample(double seconds, int rate) {
    return static_cast<float>(std::exp(std::log(0.001) / (seconds * rate)));
}

constexpr float inaudible = 1e-4F;

// A plucked string: a burst of noise that runs round a damped delay line.
class Pluck final : public Music::Voice {
public:
    Pluck(double frequency, double seconds, int rate, Random& random)
        : line_(static_cast<std::size_t>(std::max(2.0, rate / frequency))),
          damping_(0.5F * static_cast<float>(std::pow(0.001, 1 / (frequency * seconds)))),
          samplesLeft_(static_cast<int>(seconds * rate)) {
        Noise noise(random.next());
        std::generate(line_.begin(), line_.end(), [&] { return noise.sample(); });
    }

    float sample() override {
        const std::size_t next = position_ + 1 == line_.size() ? 0 : position_ + 1;
        const float out = line_[position_];
        line_[position_] = damping_ * (out + line_[next]);
        position_ = next;
        --samplesLeft_;
        return out;
    }

    bool ended() const override { return samplesLeft_ <= 0; }

private:
    std::vector<float> line_;
    std::size_t position_ = 0;
    float damping_;
    int samplesLeft_;
};

class Kick final : public Music::Voice {
public:
    explicit Kick(int rate)
        : rate_(rate), decay_(decayPerSample(0.35, rate)), fall_(decayPerSample(0.12, rate)) {}

    float sample() override {
        phase_ += 2 * pi * (45 + 160.0 * sweep_) / rate_;
        sweep_ *= fall_;
        level_ *= decay_;
        return level_ * static_cast<float>(std::sin(phase_));
    }

    bool ended() const override { return level_ < inaudible; }

private:
    int rate_;
    double phase_ = 0;
    float level_ = 1, decay_, sweep_ = 1, fall_;
};

// Snares and hats: noise through a resonance, with a tone below it.
class Hit final : public Music::Voice {
public:
    Hit(double frequency, double width, double tone, double seconds, int rate, Random& random)
        : noise_(random.next()), resonance_(frequency, width, rate), tone_(185, rate),
          toneLevel_(static_cast<float>(tone)), decay_(decayPerSample(seconds, rate)) {}

    float sample() override {
        level_ *= decay_;
        return level_ * (4 * resonance_.filter(noise_.sample()) + toneLevel_ * tone_.sample());
    }

    bool ended() const override { return level_ < inaudible; }

private:
    Noise noise_;
    Resonance resonance_;
    Rotor tone_;
    float toneLevel_, level_ = 1, decay_;
};

// A held chord tone: a few detuned harmonics that swell and fade.
class Pad final : public Music::Voice {
public:
    Pad(double frequency, int samples, int rate, Random& random) : length_(samples) {
        for (int harmonic = 1; harmonic <= 4; ++harmonic) {
            const double detune = random.uniform(0.997, 1.003);
            rotors_.emplace_back(std::min(frequency * harmonic * detune, 0.45 * rate), rate,
                                 random.uniform(0, 2 * pi));
        }
    }

    float sample() override {
        const float place = static_cast<float>(position_++) / static_cast<float>(length_);
        const float swell = 4 * place * (1 - place);
        float sum = 0;
        float level = 0.5F;
        for (Rotor& rotor : rotors_) {
            sum += level * rotor.sample();
            level *= 0.6F;
        }
        return swell * sum;
    }

    bool ended() const override { return position_ >= length_; }

private:
    std::vector<Rotor> rotors_;
    int position_ = 0;
    int length_;
};

// A sine that glides over the whole range of hearing.
class Sweep final : public Music::Voice {
public:
    Sweep(double from, double to, int samples, int rate)
        : rate_(rate), frequency_(from), ratio_(std::pow(to / from, 1.0 / samples)), left_(samples) {}

    float sample() override {
        frequency_ *= ratio_;
        phase_ += 2 * pi * frequency_ / rate_;
        --left_;
        return static_cast<float>(std::sin(phase_)) * std::min(1.0F, static_cast<float>(left_) / 2000);
    }

    bool ended() const override { return left_ <= 0; }

private:
    int rate_;
    double phase_ = 0;
    double frequency_, ratio_;
    int left_;
};

// A syllable: pulses of a voice, or breath, through three resonances of a mouth.
class Syllable final : public Music::Voice {
public:
    Syllable(int samples, int rate, Random& random)
        : noise_(random.next()), breath_(random.below(3) == 0 ? 1.0F : 0.05F),
          formants_{Resonance(random.uniform(300, 800), 80, rate),
                    Resonance(random.uniform(900, 2200), 120, rate),
                    Resonance(std::min(random.uniform(2400, 3500), 0.45 * rate), 160, rate)},
          period_(rate / random.uniform(95, 210)), length_(samples) {}

    float sample() override {
        float excitation = breath_ * noise_.sample();
        if (breath_ < 1 && ++sincePulse_ >= period_) {
            sincePulse_ -= period_;
            period_ *= 1.001;
            excitation += 12;
        }
        const float place = static_cast<float>(position_++) / static_cast<float>(length_);
        const float envelope = std::min({1.0F, 12 * place, 4 * (1 - place)});
        float sum = 0;
        for (Resonance& formant : formants_) {
            sum += formant.filter(excitation);
        }
        return envelope * 2 * sum;
    }

    bool ended() const override { return position_ >= length_; }

private:
    Noise noise_;
    float breath_;
    std::array<Resonance, 3> formants_;
    double sincePulse_ = 0;
    double period_;
    int position_ = 0;
    int length_;
};

// Wind: noise whose low end is louder, swelling and fading.
class Wind final : public Music::Voice {
public:
    Wind(int samples, Random& random) : noise_(random.next()), length_(samples) {}

    float sample() override {
        const float place = static_cast<float>(position_++) / static_cast<float>(length_);
        const float white = noise_.sample();
        low_ += 0.05F * (white - low_);
        return 4 * place * (1 - place) * (2 * low_ + 0.3F * white);
    }

    bool ended() const override { return position_ >= length_; }

private:
    Noise noise_;
    float low_ = 0;
    int position_ = 0;
    int length_;
};

constexpr std::array<double, 5> pentatonic = {1, 9.0 / 8, 5.0 / 4, 3.0 / 2, 5.0 / 3};

// Louder than 0.6 is bent, so that nothing clips and quiet passages stay untouched.
float limited(float x) {
    const float size = std::abs(x);
    if (size <= 0.6F) {
        return x;
    }
    const float over = (size - 0.6F) / 0.3F;
    return std::copysign(0.6F + 0.3F * over / (1 + over), x);
}

} // namespace

Music::Music(const MusicSettings& settings) : settings_(settings), random_(settings.seed) {
    settings_.channels = std::clamp(settings.channels, 1, maximalChannels);
}

void Music::add(std::unique_ptr<Voice> voice, double level, double place, int delay) {
    Placed placed{std::move(voice), {}, delay};
    if (settings_.channels == 1) {
        placed.gains[0] = static_cast<float>(level);
    } else if (settings_.channels == 2) {
        placed.gains[0] = static_cast<float>(level * std::cos(place * pi / 2));
        placed.gains[1] = static_cast<float>(level * std::sin(place * pi / 2));
    } else {
        for (int channel = 0; channel < settings_.channels; ++channel) {
            const double distance = std::abs(place * (settings_.channels - 1) - channel);
            placed.gains[static_cast<std::size_t>(channel)] =
                static_cast<float>(level * std::max(0.05, 1 - distance / 1.5));
        }
    }
    voices_.push_back(std::move(placed));
}

void Music::startSection() {
    texture_ = static_cast<Texture>(random_.below(8));
    if (texture_ == Texture::rest && random_.below(2) == 0) {
        texture_ = Texture::band;
    }
    stepsLeft_ = texture_ == Texture::rest ? 4 : 32 + 16 * random_.below(3);
    stepLength_ = static_cast<int>(settings_.rate * 60 / random_.uniform(80, 160) / 4);
    root_ = random_.uniform(70, 140);
}

void Music::startStep() {
    if (stepsLeft_-- <= 0) {
        startSection();
    }
    const int rate = settings_.rate;
    const auto has = [&](Texture texture) { return texture_ == texture || texture_ == Texture::band; };
    const auto late = [&] { return random_.below(std::max(1, stepLength_ / 8)); };
    const int beat = step_++ % 16;
    if (has(Texture::drums)) {
        if (beat % 8 == 0 || random_.below(8) == 0) {
            add(std::make_unique<Kick>(rate), 0.5, 0.5, late());
        }
        if (beat % 8 == 4) {
            add(std::make_unique<Hit>(1900, 1500, 0.5, 0.2, rate, random_), 0.35, 0.45, late());
        }
        if (beat % 2 == 0 || random_.below(3) == 0) {
            add(std::make_unique<Hit>(std::min(9000.0, 0.4 * rate), 4000, 0, 0.06, rate, random_), 0.2, 0.7,
                late());
        }
    }
    if (has(Texture::strings) && random_.below(3) != 0) {
        const double frequency =
            root_ * pentatonic[static_cast<std::size_t>(random_.below(5))] * (1 << random_.below(3));
        add(std::make_unique<Pluck>(frequency, random_.uniform(0.3, 1.8), rate, random_), 0.3,
            random_.uniform(0.1, 0.9), late());
    }
    if (has(Texture::pad) && beat == 0) {
        for (const double interval : {1.0, 1.25, 1.5, 2.0}) {
            add(std::make_unique<Pad>(root_ * 2 * interval, stepLength_ * 18, rate, random_), 0.18,
                random_.uniform(0, 1), 0);
        }
    }
    if (texture_ == Texture::sweep && beat == 0) {
        const double top = 0.45 * rate;
        add(std::make_unique<Sweep>(40, top, stepLength_ * 14, rate), 0.25, random_.uniform(0, 1), 0);
        add(std::make_unique<Sweep>(top / 2, 60, stepLength_ * 14, rate), 0.15, random_.uniform(0, 1), 0);
    }
    if (texture_ == Texture::speech && random_.below(4) != 0) {
        add(std::make_unique<Syllable>(static_cast<int>(rate * random_.uniform(0.08, 0.25)), rate, random_),
            0.5, 0.5, late());
    }
    if (texture_ == Texture::noise && beat == 0) {
        add(std::make_unique<Wind>(stepLength_ * 16, random_), 0.5, random_.uniform(0.2, 0.8), 0);
    }
}

void Music::render(float* interleaved, int frames) {
    const int channels = settings_.channels;
    int done = 0;
    while (done < frames) {
        if (samplesLeft_ == 0) {
            startStep();
            samplesLeft_ = stepLength_;
        }
        const int count = std::min(frames - done, samplesLeft_);
        float* block = interleaved + static_cast<std::ptrdiff_t>(done) * channels;
        std::fill_n(block, static_cast<std::ptrdiff_t>(count) * channels, 0.0F);
        for (Placed& placed : voices_) {
            const int start = std::min(placed.delay, count);
            placed.delay -= start;
            for (int i = start; i < count && !placed.voice->ended(); ++i) {
                const float value = placed.voice->sample();
                for (int channel = 0; channel < channels; ++channel) {
                    block[i * channels + channel] += placed.gains[static_cast<std::size_t>(channel)] * value;
                }
            }
        }
        std::erase_if(voices_, [](const Placed& placed) { return placed.voice->ended(); });
        std::transform(block, block + static_cast<std::ptrdiff_t>(count) * channels, block, limited);
        samplesLeft_ -= count;
        done += count;
    }
}

} // namespace cadora
