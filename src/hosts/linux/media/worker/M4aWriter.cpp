#include "hosts/linux/media/worker/M4aWriter.h"

#include "hosts/linux/media/worker/AacEncoder.h"
#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <cerrno>

namespace cadora {

M4aWriter::M4aWriter(const OpenFile& output, const AVCodecContext& encoder,
                     const std::map<std::string, std::string>& tags)
    : io_(output, DescriptorIo::Mode::readWrite), held_(makePacket()), position_(-encoder.initial_padding) {
    AVFormatContext* context = nullptr;
    if (avformat_alloc_output_context2(&context, nullptr, "ipod", nullptr) < 0) {
        throw std::bad_alloc();
    }
    format_.reset(context);
    context->pb = io_.context();
    context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;
    context->flush_packets = 0; // nobody reads along
    context->opaque = this;
    // The muxer opens the file a second time, for reading, when it moves the sound behind the index.
    context->io_open = &M4aWriter::openAgain;
    context->io_close2 = &M4aWriter::closeAgain;
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    stream->time_base = AVRational{1, encoder.sample_rate};
    check(avcodec_parameters_from_context(stream->codecpar, &encoder));
    for (const auto& [name, value] : tags) {
        av_dict_set(&context->metadata, name.c_str(), value.c_str(), 0);
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    // The edit list counts in the movie's time scale; any other than the sample rate would round it.
    av_dict_set_int(&options, "movie_timescale", encoder.sample_rate, 0);
    const int result = avformat_write_header(context, &options);
    av_dict_free(&options);
    check(result);
}

M4aWriter::~M4aWriter() = default;

int M4aWriter::openAgain(AVFormatContext* context, AVIOContext** io, const char*, int flags, AVDictionary**) {
    auto& self = *static_cast<M4aWriter*>(context->opaque);
    if ((flags & AVIO_FLAG_WRITE) != 0 || self.reader_) {
        return AVERROR(EACCES);
    }
    try {
        self.reader_ = std::make_unique<DescriptorIo>(self.io_.file(), DescriptorIo::Mode::read);
    } catch (const std::exception&) {
        return AVERROR(EIO);
    }
    *io = self.reader_->context();
    return 0;
}

int M4aWriter::closeAgain(AVFormatContext* context, AVIOContext*) {
    static_cast<M4aWriter*>(context->opaque)->reader_.reset();
    return 0;
}

void M4aWriter::check(int result) const {
    if (io_.errorNumber() != 0) {
        throw cannotWrite(io_.errorNumber());
    }
    if (reader_ && reader_->errorNumber() != 0) {
        throw cannotWrite(reader_->errorNumber());
    }
    if (result == AVERROR(ENOMEM)) {
        throw outOfMemory();
    }
    if (result < 0) {
        throw cannotWrite(EIO);
    }
}

void M4aWriter::writeHeld(std::int64_t duration) {
    if (held_->size == 0) {
        return;
    }
    held_->stream_index = 0;
    held_->flags |= AV_PKT_FLAG_KEY;
    held_->pts = position_;
    held_->dts = position_;
    held_->duration = duration;
    position_ += duration;
    const int result = av_write_frame(format_.get(), held_.get());
    av_packet_unref(held_.get());
    check(result);
}

void M4aWriter::write(std::span<const std::uint8_t> packet) {
    writeHeld(AacEncoder::frameSize);
    if (av_new_packet(held_.get(), static_cast<int>(packet.size())) < 0) {
        throw std::bad_alloc();
    }
    std::copy(packet.begin(), packet.end(), held_->data);
}

void M4aWriter::finish(std::int64_t samples) {
    writeHeld(std::clamp<std::int64_t>(samples - position_, 1, AacEncoder::frameSize));
    check(av_write_trailer(format_.get()));
    avio_flush(io_.context());
    check(io_.context()->error);
}

} // namespace cadora
