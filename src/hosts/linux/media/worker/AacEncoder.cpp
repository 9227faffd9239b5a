#include "hosts/linux/media/worker/AacEncoder.h"

#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>

namespace cadora {

namespace {

// The quick coder takes less than it is given, the thorough one what it is given.
constexpr std::int64_t quickBitRate = 136000;
constexpr std::int64_t thoroughBitRate = 128000;
// What the encoder chooses for the lower of these; more sound than that is nobody's gain.
constexpr int highestFrequency = 20000; // Hz

struct OptionsDeleter {
    AVDictionary* options = nullptr;
    ~OptionsDeleter() { av_dict_free(&options); }
};

[[noreturn]] void encoderRefused() {
    throw ExportError(ExportFailure::outOfResources,
                      "The recording couldn’t be converted: the encoder gave up.");
}

} // namespace

AacEncoder::AacEncoder(const PcmFormat& format, AacCoder coder) : frame_(makeFrame()), packet_(makePacket()) {
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
    const bool quick = coder == AacCoder::quick;
    context_->bit_rate = (quick ? quickBitRate : thoroughBitRate) * format.channels;
    context_->cutoff = std::min(highestFrequency, format.rate / 2);
    context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    context_->thread_count = 1;
    av_channel_layout_default(&context_->ch_layout, format.channels);
    // At this bit rate neither noise in the place of sound nor sides that share their phase are a gain.
    OptionsDeleter own;
    av_dict_set(&own.options, "aac_coder", quick ? "fast" : "twoloop", 0);
    for (const char* name : {"aac_pns", "aac_is"}) {
        av_dict_set(&own.options, name, "0", 0);
    }
    if (!quick) {
        av_dict_set(&own.options, "aac_tns", "0", 0);
    }
    if (avcodec_open2(context_.get(), codec, &own.options) < 0) {
        encoderRefused();
    }
    frame_->format = AV_SAMPLE_FMT_FLTP;
    frame_->sample_rate = format.rate;
    frame_->nb_samples = frameSize;
    if (av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout) < 0 ||
        av_frame_get_buffer(frame_.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    // The encoder's very first packet is of short windows and lacks 3 ms: it is to be of silence.
    av_samples_set_silence(frame_->extended_data, 0, frameSize, format.channels, AV_SAMPLE_FMT_FLTP);
    send(frameSize);
}

void AacEncoder::encode(const float* const* planes, int samples, const Sink& sink) {
    frame_->nb_samples = frameSize;
    if (av_frame_make_writable(frame_.get()) < 0) {
        throw std::bad_alloc();
    }
    for (int channel = 0; channel < context_->ch_layout.nb_channels; ++channel) {
        std::copy_n(planes[channel], samples, reinterpret_cast<float*>(frame_->data[channel]));
    }
    send(samples);
    receive(sink);
}

void AacEncoder::send(int samples) {
    frame_->nb_samples = samples;
    frame_->pts = position_;
    position_ += samples;
    if (avcodec_send_frame(context_.get(), frame_.get()) < 0) {
        encoderRefused();
    }
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
        if (next_ == Next::sound) {
            sink(*packet_);
        }
        next_ = Next::sound;
        av_packet_unref(packet_.get());
    }
}

} // namespace cadora
