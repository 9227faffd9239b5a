#include "hosts/linux/media/worker/EncodedChunk.h"

#include "hosts/linux/media/worker/Lifeline.h"

#include <algorithm>
#include <array>

namespace cadora {

namespace {

class BitReader {
public:
    explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    // Zeros behind the end.
    unsigned read(int bits) {
        unsigned value = 0;
        for (int i = 0; i < bits; ++i, ++position_) {
            const std::size_t index = position_ / 8;
            const unsigned byte = index < bytes_.size() ? bytes_[index] : 0U;
            value = value << 1 | (byte >> (7 - position_ % 8) & 1U);
        }
        return value;
    }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

constexpr unsigned singleChannelElement = 0;
constexpr unsigned channelPairElement = 1;

} // namespace

std::optional<FrameWindow> sharedWindow(std::span<const std::uint8_t> packet, int channels) {
    if (packet.empty()) {
        return std::nullopt;
    }
    BitReader bits(packet);
    const unsigned element = bits.read(3);
    bits.read(4); // the element's tag
    if (channels == 1 && element == singleChannelElement) {
        bits.read(8); // global gain
    } else if (channels != 2 || element != channelPairElement || bits.read(1) == 0) {
        return std::nullopt;
    }
    bits.read(1); // reserved
    const int sequence = static_cast<int>(bits.read(2));
    const int shape = static_cast<int>(bits.read(1));
    return FrameWindow{sequence, shape};
}

std::unique_ptr<EncodedChunk> EncodedChunk::make(const PcmFormat& format, const PcmChunk& chunk) {
    // The quick coder that wants no more than this has only few tones to encode, and may have missed them.
    // Bits per second and channel.
    constexpr double suspiciouslyLow = 50000;
    auto encoded = std::make_unique<EncodedChunk>(format, chunk.firstFrame, AacCoder::quick);
    encoded->encode(chunk);
    if (encoded->bitRate() < suspiciouslyLow) {
        encoded = std::make_unique<EncodedChunk>(format, chunk.firstFrame, AacCoder::thorough);
        encoded->encode(chunk);
    }
    return encoded;
}

EncodedChunk::EncodedChunk(const PcmFormat& format, std::int64_t firstFrame, AacCoder coder)
    : encoder_(format, coder), format_(format), channels_(format.channels), nextFrame_(firstFrame),
      firstPacket_(firstFrame) {}

void EncodedChunk::encode(const PcmChunk& chunk) {
    const AacEncoder::Sink keep = [this](const AVPacket& packet) {
        bytes_.insert(bytes_.end(), packet.data, packet.data + packet.size);
        ends_.push_back(bytes_.size());
    };
    for (std::int64_t offset = (nextFrame_ - chunk.firstFrame) * AacEncoder::frameSize;
         offset < chunk.samples; offset += AacEncoder::frameSize, ++nextFrame_) {
        const int count =
            static_cast<int>(std::min<std::int64_t>(AacEncoder::frameSize, chunk.samples - offset));
        const std::array<const float*, 2> planes = {chunk.plane(0) + offset,
                                                    chunk.plane(channels_ - 1) + offset};
        encoder_.encode(planes.data(), count, keep);
        noteProgress();
    }
    if (chunk.end == PcmChunk::End::endsHere) {
        encoder_.finish(keep);
    }
}

std::span<const std::uint8_t> EncodedChunk::packet(std::int64_t number) const {
    const auto index = static_cast<std::size_t>(number - firstPacket_);
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return {bytes_.data() + begin, ends_[index] - begin};
}

double EncodedChunk::bitRate() const {
    const double samples = static_cast<double>(ends_.size()) * AacEncoder::frameSize * channels_;
    return ends_.empty() ? 0 : static_cast<double>(bytes_.size()) * 8 * format_.rate / samples;
}

void EncodedChunk::dropUntil(std::int64_t number) {
    const auto count =
        std::clamp<std::int64_t>(number - firstPacket_, 0, static_cast<std::int64_t>(ends_.size()));
    if (count == 0) {
        return;
    }
    const std::size_t dropped = ends_[static_cast<std::size_t>(count) - 1];
    ends_.erase(ends_.begin(), ends_.begin() + count);
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(dropped));
    for (std::size_t& end : ends_) {
        end -= dropped;
    }
    firstPacket_ += count;
}

bool EncodedChunk::joins(const EncodedChunk& next, std::int64_t number) const {
    const std::int64_t before = number - 1;
    if (before < firstPacket_ || before >= endPacket() || before < next.firstPacket_ ||
        number >= next.endPacket()) {
        return false;
    }
    const auto mine = sharedWindow(packet(before), channels_);
    return mine && mine->sequence == 0 && mine == sharedWindow(next.packet(before), channels_);
}

} // namespace cadora
