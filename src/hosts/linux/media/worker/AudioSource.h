#pragma once

#include "hosts/linux/media/worker/DescriptorIo.h"
#include "hosts/linux/media/worker/FfmpegHandles.h"
#include "hosts/linux/media/worker/Labels.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace cadora {

// The sound of one file, read through a descriptor and nothing else: demuxers and decoders are limited to
// those that a musician's files need, and whatever a file refers to outside itself isn't opened.
// Not thread-safe; everything throws ExportError.
class AudioSource {
public:
    // A movie's edit list says which part of its sound counts. Ignored, packets begin before time zero
    // where the list leaves them out.
    enum class Edits { applied, ignored };

    // Reads the headers.
    explicit AudioSource(const OpenFile& file, Edits edits = Edits::applied);

    // The next packet of the sound track, none at the end. The packet belongs to the source and is valid
    // until the next call. Packets and frames come from one position: use one of the two.
    const AVPacket* nextPacket();

    // The next piece of decoded sound, none at the end. The frame belongs to the source and is valid
    // until the next call. Encoder delay and padding that the container declares are already removed. A
    // packet that can't be decoded is replaced by as much silence, so that what follows stays in time; at
    // the end there is nothing to keep in time, and it is left out.
    const AVFrame* nextFrame();

    // Moves the packets to a time, in units of the stream's time base; false if the format can't.
    bool seek(std::int64_t timestamp);

    // Whether a packet of this source gives any sound when it is decoded by itself.
    bool decodes(const AVPacket& packet) const;

    const AVStream& stream() const { return *stream_; }
    const OpenFile& file() const { return io_.file(); }
    const char* formatName() const { return format_->iformat->name; }

    // The container's tags by FFmpeg's names ("title", "artist"), as valid UTF-8.
    std::map<std::string, std::string> tags() const;

    // All of them, and the picture that comes with the sound.
    Labels labels(float gain) const;

private:
    struct InputDeleter {
        void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    };

    void open(Edits edits);
    void chooseStream();
    CodecContextHandle makeDecoder() const;
    void noteBadPacket(const AVPacket& packet);
    std::map<std::string, std::string> allTags() const;
    const AVFrame* owedSilence();
    [[noreturn]] void failReading() const;

    DescriptorIo io_;
    std::unique_ptr<AVFormatContext, InputDeleter> format_;
    AVStream* stream_ = nullptr;
    CodecContextHandle decoder_;
    PacketHandle packet_;
    FrameHandle frame_;
    FrameHandle silence_;
    enum class Feed { packets, flushed } feed_ = Feed::packets;
    enum class FrameState { given, waitsBehindSilence } frameState_ = FrameState::given;
    std::int64_t goodPackets_ = 0;
    std::int64_t badPackets_ = 0;
    std::int64_t silenceOwed_ = 0; // samples, for packets that couldn't be decoded
};

} // namespace cadora
