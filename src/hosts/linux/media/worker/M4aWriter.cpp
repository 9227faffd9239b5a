#include "hosts/linux/media/worker/M4aWriter.h"

#include "hosts/linux/media/worker/AacEncoder.h"
#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace cadora {

namespace {

// The muxer keeps a place among its labels by one of them, which no sound has; ours take it in the end.
constexpr const char* placeholderName = "show";
constexpr std::string_view placeholderType = "tvsh";
constexpr std::size_t placeholderHead = 24; // bytes before its text

std::uint64_t bigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes) {
        value = value << 8 | static_cast<std::uint8_t>(byte);
    }
    return value;
}

} // namespace

M4aWriter::M4aWriter(const OpenFile& output, const AVCodecContext& encoder,
                     const std::map<std::string, std::string>& tags, Labels labels)
    : io_(output, DescriptorIo::Mode::readWrite), held_(makePacket()), position_(-encoder.initial_padding),
      padding_(encoder.initial_padding), labels_(std::move(labels)) {
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
    const std::string room(labelItems(labels_, 0, 0, 0).size() - placeholderHead, ' ');
    av_dict_set(&context->metadata, placeholderName, room.c_str(), 0);
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
    ++packets_;
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
    writeLabels(samples);
}

void M4aWriter::writeLabels(std::int64_t samples) const {
    const std::int64_t behind = packets_ * AacEncoder::frameSize - padding_ - samples;
    const std::string items = labelItems(labels_, padding_, behind, samples);
    const int descriptor = io_.file().descriptor;
    // The index is the second box of the file.
    std::array<char, 8> head{};
    std::int64_t offset = 0;
    for (int box = 0; box < 2; ++box) {
        if (pread(descriptor, head.data(), head.size(), offset) != static_cast<ssize_t>(head.size())) {
            throw cannotWrite(EIO);
        }
        offset += box == 0 ? static_cast<std::int64_t>(bigEndian({head.data(), 4})) : 0;
    }
    std::string index(bigEndian({head.data(), 4}), '\0');
    if (pread(descriptor, index.data(), index.size(), offset) != static_cast<ssize_t>(index.size())) {
        throw cannotWrite(EIO);
    }
    // No text holds the zeros of the size before it.
    for (std::size_t at = index.rfind(placeholderType); at != std::string::npos && at >= 4;
         at = index.rfind(placeholderType, at - 1)) {
        if (bigEndian(std::string_view(index).substr(at - 4, 4)) == items.size()) {
            const auto place = offset + static_cast<std::int64_t>(at) - 4;
            if (pwrite(descriptor, items.data(), items.size(), place) != static_cast<ssize_t>(items.size())) {
                throw cannotWrite(errno);
            }
            return;
        }
    }
    throw cannotWrite(EIO);
}

} // namespace cadora
