#pragma once

#include "hosts/linux/media/worker/AacEncoder.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace cadora {

// A stretch of planar samples, counted in frames of AacEncoder::frameSize from the start of the sound.
struct PcmChunk {
    int channels = 0;
    std::int64_t firstFrame = 0;
    std::int64_t samples = 0; // per channel; a whole number of frames unless `end` says so
    enum class End { goesOn, endsHere } end = End::goesOn;
    std::unique_ptr<float[]> planes; // one channel after the other, each of `capacity` samples
    std::int64_t capacity = 0;

    std::int64_t frames() const { return (samples + AacEncoder::frameSize - 1) / AacEncoder::frameSize; }
    float* plane(int channel) { return planes.get() + channel * capacity; }
    const float* plane(int channel) const { return planes.get() + channel * capacity; }
};

// How an AAC frame's window is shaped, as far as the next frame depends on it.
struct FrameWindow {
    int sequence; // 0 is the only long one that has long neighbours
    int shape;

    friend bool operator==(const FrameWindow&, const FrameWindow&) = default;
};

// The window that all channels of a packet share; none if they don't.
std::optional<FrameWindow> sharedWindow(std::span<const std::uint8_t> packet, int channels);

// Packets of one encoder, numbered as if a single encoder had encoded the sound from its start.
class EncodedChunk {
public:
    EncodedChunk(const PcmFormat& format, std::int64_t firstFrame, AacCoder coder);

    // A chunk encoded by the coder that does better by it.
    static std::unique_ptr<EncodedChunk> make(const PcmFormat& format, const PcmChunk& chunk);

    // Encodes those of the chunk's frames that follow the ones already encoded. A chunk that ends the
    // sound completes the packets.
    void encode(const PcmChunk& chunk);

    std::int64_t firstPacket() const { return firstPacket_; }
    std::int64_t endPacket() const { return firstPacket_ + static_cast<std::int64_t>(ends_.size()); }
    std::span<const std::uint8_t> packet(std::int64_t number) const;

    // Bits per second and channel of the packets so far.
    double bitRate() const;

    // Forgets the packets before this one.
    void dropUntil(std::int64_t number);

    // Whether a decoder that has heard this one's packets up to number - 1 may go on with the other's
    // from `number` on: the overlap of the two frames must be cut by the same long window.
    bool joins(const EncodedChunk& next, std::int64_t number) const;

    const AVCodecContext& encoder() const { return encoder_.context(); }

private:
    AacEncoder encoder_;
    PcmFormat format_;
    int channels_;
    std::int64_t nextFrame_;
    std::int64_t firstPacket_;
    std::vector<std::uint8_t> bytes_;
    std::vector<std::size_t> ends_;
};

} // namespace cadora
