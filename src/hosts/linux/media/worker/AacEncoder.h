#pragma once

#include "hosts/linux/media/worker/FfmpegHandles.h"
#include "hosts/linux/media/worker/PcmReader.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace cadora {

// How the encoder looks for the coarsest numbers that can't be heard. The quick way is better on nearly
// everything and takes less than half of the time; with a lone tone that glides it is content too early.
enum class AacCoder { quick, thorough };

// One AAC-LC encoder at a constant bit rate: about 128 kb/s for mono, 256 kb/s for stereo. Its packets come
// one frame late: packet n holds the transition from frame n-1 to frame n, before the first of which there
// was silence. Not thread-safe.
class AacEncoder {
public:
    static constexpr int frameSize = 1024; // samples

    AacEncoder(const PcmFormat& format, AacCoder coder);

    // Encodes one frame of `samples` samples; only the last may be shorter than frameSize. Packets that
    // become ready are given to the sink, in order.
    using Sink = std::function<void(const AVPacket& packet)>;
    void encode(const float* const* planes, int samples, const Sink& sink);

    // Ends the stream: the packets still held back are given to the sink.
    void finish(const Sink& sink);

    const AVCodecContext& context() const { return *context_; }

private:
    void send(int samples);
    void receive(const Sink& sink);

    CodecContextHandle context_;
    FrameHandle frame_;
    PacketHandle packet_;
    std::int64_t position_ = 0;
    enum class Next { transitionIntoSilence, sound } next_ = Next::transitionIntoSilence;
};

} // namespace cadora
