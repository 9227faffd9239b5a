#pragma once

#include "hosts/linux/media/worker/DescriptorIo.h"
#include "hosts/linux/media/worker/FfmpegHandles.h"
#include "hosts/linux/media/worker/Labels.h"
#include "hosts/linux/media/worker/OpenFile.h"

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

namespace cadora {

// Writes AAC packets into an M4A container with its index in front of the sound and an edit list that is
// exact to the sample. The same packets and tags give the same bytes. Not thread-safe; throws
// ExportError.
class M4aWriter {
public:
    // The output is empty, readable and writable. The encoder is any that encodes in the same way as the
    // packets' own; it isn't kept.
    M4aWriter(const OpenFile& output, const AVCodecContext& encoder,
              const std::map<std::string, std::string>& tags, Labels labels);
    ~M4aWriter();

    // The next packet of the stream.
    void write(std::span<const std::uint8_t> packet);

    // Completes the file, whose sound is `samples` long: what the packets hold beyond is padding.
    void finish(std::int64_t samples);

private:
    void writeHeld(std::int64_t duration);
    void writeLabels(std::int64_t samples) const;
    void check(int result) const;

    static int openAgain(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                         AVDictionary** options);
    static int closeAgain(AVFormatContext* context, AVIOContext* io);

    struct OutputDeleter {
        void operator()(AVFormatContext* context) const { avformat_free_context(context); }
    };

    DescriptorIo io_;
    std::unique_ptr<DescriptorIo> reader_;
    std::unique_ptr<AVFormatContext, OutputDeleter> format_;
    PacketHandle held_; // the newest packet: how much of it is sound is known once it isn't the last
    std::int64_t position_ = 0;
    std::int64_t packets_ = 0;
    int padding_; // samples before the sound
    Labels labels_;
};

} // namespace cadora
