#include "hosts/linux/media/worker/EncodedChunk.h"

#include <doctest/doctest.h>

#include <array>
#include <cmath>

using namespace cadora;

namespace {

PcmChunk tone(int channels, std::int64_t firstFrame, std::int64_t frames, PcmChunk::End end) {
    PcmChunk chunk;
    chunk.channels = channels;
    chunk.firstFrame = firstFrame;
    chunk.samples = frames * AacEncoder::frameSize;
    chunk.capacity = chunk.samples;
    chunk.end = end;
    chunk.planes.reset(new float[static_cast<std::size_t>(channels * chunk.capacity)]);
    for (int channel = 0; channel < channels; ++channel) {
        for (std::int64_t i = 0; i < chunk.samples; ++i) {
            const auto time = static_cast<double>(firstFrame * AacEncoder::frameSize + i);
            chunk.plane(channel)[i] = static_cast<float>(0.3 * std::sin(time * 0.05 * (channel + 1)));
        }
    }
    return chunk;
}

} // namespace

TEST_CASE("the window of a mono packet is read behind its gain") {
    // Element 0, tag 0, gain 0xff, reserved, sequence 2, shape 1.
    const std::array<std::uint8_t, 3> packet = {0b00000001, 0b11111110, 0b10100000};
    CHECK(sharedWindow(packet, 1) == FrameWindow{2, 1});
}

TEST_CASE("the window of a stereo packet is read where both channels share it") {
    // Element 1, tag 0, shared, reserved, sequence 0, shape 1.
    const std::array<std::uint8_t, 2> shared = {0b00100001, 0b00010000};
    CHECK(sharedWindow(shared, 2) == FrameWindow{0, 1});
    const std::array<std::uint8_t, 2> separate = {0b00100000, 0b00010000};
    CHECK_FALSE(sharedWindow(separate, 2));
    CHECK_FALSE(sharedWindow(shared, 1));
    CHECK_FALSE(sharedWindow({}, 2));
}

TEST_CASE("packets are numbered from the first frame, one for each but the newest") {
    EncodedChunk chunk({44100, 2}, 10, AacCoder::quick);
    chunk.encode(tone(2, 10, 5, PcmChunk::End::goesOn));
    CHECK(chunk.firstPacket() == 10);
    CHECK(chunk.endPacket() == 14);
    chunk.encode(tone(2, 12, 6, PcmChunk::End::endsHere));
    CHECK(chunk.endPacket() == 19);
    const auto kept = chunk.packet(16);
    const std::vector<std::uint8_t> copy(kept.begin(), kept.end());
    chunk.dropUntil(16);
    CHECK(chunk.firstPacket() == 16);
    CHECK(std::vector<std::uint8_t>(chunk.packet(16).begin(), chunk.packet(16).end()) == copy);
    chunk.dropUntil(100);
    CHECK(chunk.firstPacket() == chunk.endPacket());
}

TEST_CASE("two encoders of a steady tone may join, but not where one has no packet") {
    EncodedChunk before({44100, 1}, 0, AacCoder::quick);
    before.encode(tone(1, 0, 40, PcmChunk::End::goesOn));
    EncodedChunk after({44100, 1}, 20, AacCoder::quick);
    after.encode(tone(1, 20, 40, PcmChunk::End::goesOn));
    CHECK(before.joins(after, 35));
    CHECK_FALSE(before.joins(after, 20));
    CHECK_FALSE(before.joins(after, 41));
}

TEST_CASE("a lone tone, with which the quick coder is content too early, is encoded by the thorough one") {
    const auto packets = [](const EncodedChunk& chunk) {
        std::vector<std::vector<std::uint8_t>> result;
        for (std::int64_t number = chunk.firstPacket(); number < chunk.endPacket(); ++number) {
            result.emplace_back(chunk.packet(number).begin(), chunk.packet(number).end());
        }
        return result;
    };
    const PcmChunk alone = tone(2, 0, 40, PcmChunk::End::endsHere);
    PcmChunk noisy = tone(2, 0, 40, PcmChunk::End::endsHere);
    unsigned state = 1;
    for (std::int64_t i = 0; i < 2 * noisy.capacity; ++i) {
        state = state * 1664525U + 1013904223U;
        noisy.planes[static_cast<std::size_t>(i)] += static_cast<float>(state >> 8) / (1 << 26) - 0.125F;
    }
    for (const auto& [chunk, coder] : {std::pair(&alone, AacCoder::thorough), {&noisy, AacCoder::quick}}) {
        EncodedChunk expected({44100, 2}, 0, coder);
        expected.encode(*chunk);
        CHECK(packets(*EncodedChunk::make({44100, 2}, *chunk)) == packets(expected));
    }
}
