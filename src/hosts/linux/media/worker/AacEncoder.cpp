#include "hosts/linux/media/worker/AacEncoder.h"

#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>

namespace cadora {

namespace {

constexpr std::int64_t bitRatePerChannel = 128000;

[[noreturn]] void encoderRefused() {
    throw ExportError(ExportFailure::outOfResources,
                      "The recording couldn’t be converted: the encoder gave up.");
}

} // namespace

AacEncoder::AacEncoder(const PcmFormat& format) : frame_(makeFrame()), packet_(makePacket()) {
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (codec == nullptr) {
        encoderRefused();
    }
    context_.reset(avcodec_alloc_context3(codec));
    if (!context_) {
        throw std::bad_alloc();
    }
    context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context_->sample_rate = format.rate;
    context_->time_base = AVRational{1, format.rate};
    context_->bit_rate = bitRatePerChannel * format.channels;
    context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    context_->thread_count = 1;
    av_channel_layout_default(&context_->ch_layout, format.channels);
    if (avcodec_open2(context_.get(), codec, nullptr) < 0) {
        encoderRefused();
    }
    frame_->format = AV_SAMPLE_FMT_FLTP;
    frame_->sample_rate = format.rate;
    frame_->nb_samples = frameSize;
    if (av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout) < 0 ||
        av_frame_get_buffer(frame_.get(), 0) < 0) {
        throw std::bad_alloc();
    }
}

void AacEncoder::encode(const float* const* planes, int samples, const Sink& sink) {
    frame_->nb_samples = frameSize;
    if (av_frame_make_writable(frame_.get()) < 0) {
        throw std::bad_alloc();
    }
    for (int channel = 0; channel < context_->ch_layout.nb_channels; ++channel) {
        std::copy_n(planes[channel], samples, reinterpret_cast<float*>(frame_->data[channel]));
    }
    frame_->nb_samples = samples;
    frame_->pts = position_;
    position_ += samples;
    if (avcodec_send_frame(context_.get(), frame_.get()) < 0) {
        encoderRefused();
    }
    receive(sink);
}

void AacEncoder::finish(const Sink& sink) {
    if (avcodec_send_frame(context_.get(), nullptr) < 0) {
        encoderRefused();
    }
    receive(sink);
}

void AacEncoder::receive(const Sink& sink) {
    for (;;) {
        const int result = avcodec_receive_packet(context_.get(), packet_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return;
        }
        if (result < 0) {
            encoderRefused();
        }
        sink(*packet_);
        av_packet_unref(packet_.get());
    }
}

} // namespace cadora
