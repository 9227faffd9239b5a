#include "hosts/linux/media/worker/ChunkedEncoder.h"

#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Sound.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <future>
#include <stdexcept>

using namespace cadora;
using namespace cadora::test;

namespace {

constexpr std::int64_t frameSize = AacEncoder::frameSize;
constexpr std::int64_t second = 44100; // samples
using Packets = std::vector<std::vector<std::uint8_t>>;

// A WAV file as the encoders' source.
class Source {
public:
    explicit Source(const Sound& sound) { writeWav(path(), sound); }
    explicit Source(const WavSettings& settings) { writeMusic(path(), settings); }

    Packets encode(const std::function<std::int64_t(PcmReader&, const PacketSink&)>& encoder,
                   std::int64_t* samples = nullptr) const {
        const OpenedFile file(path(), OpenedFile::Use::read);
        AudioSource source(file.source());
        PcmReader reader(source, measureSource(file.source()));
        Packets packets;
        const std::int64_t count = encoder(reader, [&](std::span<const std::uint8_t> packet) {
            packets.emplace_back(packet.begin(), packet.end());
        });
        if (samples != nullptr) {
            *samples = count;
        }
        return packets;
    }

    Packets inSequence() const { return encode(encodeInSequence); }
    Packets inChunks(const EncodingPlan& plan, int encoders, std::int64_t* samples = nullptr) const {
        Crew crew(1 + encoders);
        return encode([&](PcmReader& reader,
                          const PacketSink& sink) { return ChunkedEncoder(reader, plan, crew).run(sink); },
                      samples);
    }

    std::vector<std::vector<float>> samples() const {
        const OpenedFile file(path(), OpenedFile::Use::read);
        const SourceLength length = measureSource(file.source());
        AudioSource source(file.source());
        PcmReader reader(source, length);
        std::vector<std::vector<float>> all(2, std::vector<float>(static_cast<std::size_t>(length.samples)));
        for (std::int64_t at = 0; at < length.samples; at += frameSize) {
            std::array<float*, 2> planes = {all[0].data() + at, all[1].data() + at};
            reader.read(planes.data(),
                        static_cast<int>(std::min<std::int64_t>(frameSize, length.samples - at)));
        }
        return all;
    }

private:
    std::string path() const { return (folder_.path() / "source.wav").string(); }
    TemporaryDirectory folder_;
};

EncodingPlan smallPlan() {
    EncodingPlan plan;
    plan.chunkFrames = 100;
    return plan;
}

} // namespace

TEST_CASE("the packets are the same for any number of threads, and whatever the memory allows") {
    const Source source(makeMusic({}, 25 * second));
    const Packets packets = source.inChunks(smallPlan(), 1);
    CHECK(packets.size() == static_cast<std::size_t>((25 * second + frameSize - 1) / frameSize + 1));
    CHECK(packets == source.inChunks(smallPlan(), 2));
    CHECK(packets == source.inChunks(smallPlan(), 7));
    EncodingPlan poor = smallPlan();
    poor.memory = 1;
    CHECK(packets == source.inChunks(poor, 7));
    // They do come from several encoders.
    CHECK(packets != source.inSequence());
}

TEST_CASE("a sound is cut into an even number of equal chunks, none longer than half a minute") {
    for (const std::int64_t frames :
         {300, 301, 344, 1300, 1301, 1335, 1938, 2584, 2600, 2601, 12920, 155040}) {
        CAPTURE(frames);
        const int chunkFrames = EncodingPlan::forSound(frames).chunkFrames;
        CHECK(chunkFrames <= 1300);
        const std::int64_t chunks = (frames + chunkFrames - 1) / chunkFrames;
        CHECK(chunks % 2 == 0);
        CHECK(chunks * chunkFrames - frames < chunks);
    }
    // The pre-roll of the second chunk would take what the second processor gives.
    CHECK(EncodingPlan::forSound(299).chunkFrames == 299);
}

TEST_CASE("a sound that offers no seam is encoded in sequence") {
    // Clicks so close that no window is long.
    Sound clicks{44100, {std::vector<float>(20U * second), std::vector<float>(20U * second)}};
    for (std::size_t i = 0; i < clicks.channels[0].size(); i += 700) {
        clicks.channels[0][i] = clicks.channels[1][i] = 0.9F;
    }
    const Source source(clicks);
    CHECK(source.inChunks(smallPlan(), 2) == source.inSequence());
}

TEST_CASE("chunks end where the sound ends, wherever that is") {
    EncodingPlan plan;
    plan.chunkFrames = 8;
    plan.prerollFrames = 4;
    plan.shortestPreroll = 2;
    for (const std::int64_t length :
         {1, 1023, 1024, 1025, 7 * 1024, 8 * 1024, 8 * 1024 + 1, 9 * 1024 - 1, 9 * 1024, 9 * 1024 + 1,
          16 * 1024, 17 * 1024, 17 * 1024 + 1, 40 * 1024 + 500}) {
        CAPTURE(length);
        const Source source(makeMusic({}, length));
        std::int64_t samples = 0;
        CHECK(source.inChunks(plan, 2, &samples).size() ==
              static_cast<std::size_t>((length + frameSize - 1) / frameSize + 1));
        CHECK(samples == length);
    }
}

TEST_CASE("an error of the one who takes the packets ends all threads") {
    const Source source(makeMusic({}, 20 * second));
    int count = 0;
    Crew crew(3);
    const auto run = [&] {
        source.encode([&](PcmReader& reader, const PacketSink&) {
            return ChunkedEncoder(reader, smallPlan(), crew).run([&](std::span<const std::uint8_t>) {
                if (++count == 150) {
                    throw std::runtime_error("full");
                }
            });
        });
    };
    CHECK_THROWS_WITH(run(), "full");
    CHECK(count == 150);
}

namespace {

// Decodes packets into stereo samples; the first packet's are incomplete.
std::vector<std::vector<float>> decode(const AVCodecContext& encoder, const Packets& packets) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    const CodecContextHandle decoder(avcodec_alloc_context3(codec));
    AVCodecParameters* parameters = avcodec_parameters_alloc();
    avcodec_parameters_from_context(parameters, &encoder);
    avcodec_parameters_to_context(decoder.get(), parameters);
    avcodec_parameters_free(&parameters);
    REQUIRE(avcodec_open2(decoder.get(), codec, nullptr) >= 0);
    const PacketHandle packet = makePacket();
    const FrameHandle frame = makeFrame();
    std::vector<std::vector<float>> samples(2);
    for (const auto& bytes : packets) {
        REQUIRE(av_new_packet(packet.get(), static_cast<int>(bytes.size())) >= 0);
        std::copy(bytes.begin(), bytes.end(), packet->data);
        REQUIRE(avcodec_send_packet(decoder.get(), packet.get()) >= 0);
        REQUIRE(avcodec_receive_frame(decoder.get(), frame.get()) >= 0);
        av_packet_unref(packet.get());
        for (std::size_t channel = 0; channel < 2; ++channel) {
            const auto* data = reinterpret_cast<const float*>(frame->extended_data[channel]);
            samples[channel].insert(samples[channel].end(), data, data + frame->nb_samples);
        }
    }
    return samples;
}

// The seams of one way to encode, against a single encoder: how much more error they have, in dB.
struct SeamReport {
    double mean = 0;
    double worst = -100;

    bool isInaudible() const { return mean <= 0.5 && worst <= 6; }
};

class SeamProof {
public:
    static constexpr int chunkFrames = 300;
    static constexpr int preroll = 24;
    static constexpr int slack = 16; // that a seam may move

    explicit SeamProof(AacCoder coder) : source_(settings()), coder_(coder), encoder_({44100, 2}, coder) {
        samples_ = source_.samples();
        if (coder == AacCoder::thorough) {
            single_ = freshPackets(0, static_cast<std::int64_t>(samples_[0].size()) / frameSize - 1);
            return;
        }
        auto single = std::async(std::launch::async, [this] { return source_.inSequence(); });
        EncodingPlan plan;
        plan.chunkFrames = chunkFrames;
        REQUIRE(plan.prerollFrames == preroll);
        REQUIRE(plan.prerollFrames - plan.shortestPreroll == slack);
        chunked_ = source_.inChunks(plan, 1);
        single_ = single.get();
        REQUIRE(chunked_.size() == single_.size());
    }

    // The seams as they were made.
    SeamReport asMade() const {
        return report([this](std::int64_t nominal) {
            const Packets fresh = freshPackets(nominal - preroll, nominal + window);
            const auto isFresh = [&](std::int64_t number) {
                return chunked_[static_cast<std::size_t>(number)] ==
                       fresh[static_cast<std::size_t>(number - nominal + preroll)];
            };
            if (!isFresh(nominal)) {
                return Seam{-1, {}}; // the windows never agreed, so the encoder before went on
            }
            std::int64_t seam = nominal;
            while (seam > nominal - slack && isFresh(seam - 1)) {
                --seam;
            }
            return Seam{seam, {}};
        });
    }

    // Seams as they would be after less pre-roll and without a look at the windows.
    SeamReport withPreroll(int frames) const {
        return report([this, frames](std::int64_t nominal) {
            Packets packets = single_;
            const Packets fresh = freshPackets(nominal - frames, nominal + window);
            std::copy(fresh.begin() + frames, fresh.end(), packets.begin() + nominal);
            return Seam{nominal, std::move(packets)};
        });
    }

private:
    static constexpr int window = 12; // frames behind a seam that are encoded anew
    struct Seam {
        std::int64_t number;
        Packets packets;
    };

    static WavSettings settings() {
        WavSettings settings;
        settings.frames = 240 * second;
        return settings;
    }

    // Packets begin to end - 1 of an encoder that starts with frame `begin`.
    Packets freshPackets(std::int64_t begin, std::int64_t end) const {
        AacEncoder encoder({44100, 2}, coder_);
        Packets packets;
        for (std::int64_t frame = begin; frame <= end; ++frame) {
            const std::array<const float*, 2> planes = {samples_[0].data() + frame * frameSize,
                                                        samples_[1].data() + frame * frameSize};
            encoder.encode(planes.data(), frameSize, [&](const AVPacket& packet) {
                packets.emplace_back(packet.data, packet.data + packet.size);
            });
        }
        return packets;
    }

    // Of the frames that a seam can touch: the one before it and three behind.
    double error(const Packets& packets, std::int64_t seam) const {
        constexpr int lead = 6;
        const Packets part(packets.begin() + seam - lead, packets.begin() + seam + 4);
        const auto decoded = decode(encoder_.context(), part);
        double sum = 1e-9;
        for (std::size_t channel = 0; channel < 2; ++channel) {
            for (std::size_t i = (lead - 1) * std::size_t{frameSize}; i < decoded[channel].size(); ++i) {
                // Packet n gives the samples of frame n - 1.
                const auto at = static_cast<std::size_t>((seam - lead - 1) * frameSize) + i;
                const double difference = decoded[channel][i] - samples_[channel][at];
                sum += difference * difference;
            }
        }
        return sum;
    }

    template <typename MakeSeam> SeamReport report(const MakeSeam& makeSeam) const {
        SeamReport report;
        int seams = 0;
        const auto last = static_cast<std::int64_t>(single_.size()) - std::int64_t{2} * window;
        for (std::int64_t nominal = chunkFrames; nominal < last; nominal += chunkFrames) {
            const Seam seam = makeSeam(nominal);
            if (seam.number < 0) {
                continue;
            }
            const Packets& packets = seam.packets.empty() ? chunked_ : seam.packets;
            const double ratio = 10 * std::log10(error(packets, seam.number) / error(single_, seam.number));
            ++seams;
            report.mean += ratio;
            report.worst = std::max(report.worst, ratio);
        }
        REQUIRE(seams >= 28);
        report.mean /= seams;
        return report;
    }

    Source source_;
    AacCoder coder_;
    AacEncoder encoder_;
    std::vector<std::vector<float>> samples_;
    Packets single_;
    Packets chunked_;
};

} // namespace

TEST_CASE("a seam has no more error than a single encoder, and without pre-roll it has") {
    const auto tell = [](const std::string& what, const SeamReport& report) {
        MESSAGE(what, ": mean ", report.mean, " dB, worst ", report.worst, " dB");
        return report.isInaudible();
    };
    const SeamProof quick(AacCoder::quick);
    CHECK(tell("seams as made", quick.asMade()));
    CHECK_FALSE(tell("without pre-roll", quick.withPreroll(0)));
    // A seam may move down to the shortest pre-roll, and join the thorough coder's packets.
    const SeamProof thorough(AacCoder::thorough);
    for (const SeamProof* const proof : {&quick, &thorough}) {
        CHECK(tell("with the shortest pre-roll", proof->withPreroll(EncodingPlan().shortestPreroll)));
    }
    CHECK_FALSE(tell("the thorough coder's without pre-roll", thorough.withPreroll(0)));
}
