#include "hosts/linux/media/worker/PcmReader.h"

#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace cadora {

namespace {

constexpr std::array<int, 10> aacRates = {7350, 8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};

// Ten octaves of headroom over full scale: no recording is louder, and the encoder's sums stay finite.
constexpr float loudest = 1024.0F;

void makeFinite(float* samples, int count, float gain) {
    for (int i = 0; i < count; ++i) {
        const float value = samples[i];
        samples[i] = std::isnan(value) ? 0.0F : gain * std::clamp(value, -loudest, loudest);
    }
}

// FFmpeg leaves the layout open where a file doesn't say which loudspeaker is which.
AVChannelLayout knownLayout(const AVChannelLayout& layout) {
    AVChannelLayout known{};
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC || layout.nb_channels <= 2) {
        av_channel_layout_default(&known, layout.nb_channels);
    } else {
        av_channel_layout_copy(&known, &layout);
    }
    return known;
}

// For channels without a place in a room: the first goes left, the second right, and so on.
std::vector<double> alternatingMatrix(int channels) {
    const auto count = static_cast<std::size_t>(channels);
    const std::size_t lefts = (count + 1) / 2;
    std::vector<double> matrix(2 * count, 0.0);
    for (std::size_t i = 0; i < count; ++i) {
        const bool left = i % 2 == 0;
        matrix[(left ? 0 : count) + i] = 1.0 / static_cast<double>(left ? lefts : count - lefts);
    }
    return matrix;
}

} // namespace

PcmFormat pcmFormatFor(int rate, int channels) {
    PcmFormat format;
    format.channels = channels == 1 ? 1 : 2;
    if (rate > aacRates.back()) {
        format.rate = rate % 44100 == 0 ? 44100 : aacRates.back();
    } else {
        format.rate = *std::lower_bound(aacRates.begin(), aacRates.end(), rate);
    }
    return format;
}

PcmReader::PcmReader(AudioSource& source, const SourceLength& length, float gain)
    : source_(source), length_(length), gain_(gain), cut_(makeFrame()), configured_(makeFrame()) {
    const AVFrame* first = nextFrame();
    if (first == nullptr) {
        throw noDuration();
    }
    if (first->sample_rate <= 0 || first->ch_layout.nb_channels <= 0) {
        throw damaged();
    }
    format_ = pcmFormatFor(first->sample_rate, first->ch_layout.nb_channels);
    fifo_.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, format_.channels, 8192));
    if (!fifo_) {
        throw std::bad_alloc();
    }
    convert(first);
}

bool PcmReader::matches(const AVFrame& frame) const {
    return converter_ && frame.format == configured_->format &&
           frame.sample_rate == configured_->sample_rate &&
           av_channel_layout_compare(&frame.ch_layout, &configured_->ch_layout) == 0;
}

void PcmReader::configure(const AVFrame& frame) {
    if (frame.sample_rate <= 0 || frame.ch_layout.nb_channels <= 0) {
        throw damaged();
    }
    requirePlausibleRate(frame.sample_rate);
    AVChannelLayout in = knownLayout(frame.ch_layout);
    AVChannelLayout out{};
    av_channel_layout_default(&out, format_.channels);
    SwrContext* context = nullptr;
    if (swr_alloc_set_opts2(&context, &out, AV_SAMPLE_FMT_FLTP, format_.rate, &in,
                            static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr) < 0) {
        throw damaged();
    }
    converter_.reset(context);
    av_opt_set_int(context, "resampler", SWR_ENGINE_SOXR, 0);
    constexpr double neverLowered = 1000;
    av_opt_set_double(context, "rematrix_maxval", neverLowered, 0);
    av_opt_set_int(context, "internal_sample_fmt", AV_SAMPLE_FMT_FLTP, 0);
    if (in.order == AV_CHANNEL_ORDER_UNSPEC) {
        const auto matrix = alternatingMatrix(in.nb_channels);
        swr_set_matrix(context, matrix.data(), in.nb_channels);
    }
    if (swr_init(context) < 0) {
        throw damaged();
    }
    av_frame_unref(configured_.get());
    configured_->format = frame.format;
    configured_->sample_rate = frame.sample_rate;
    av_channel_layout_copy(&configured_->ch_layout, &frame.ch_layout);
    consumed_ = 0;
    produced_ = 0;
}

// Without a frame: flushes what the converter holds back.
void PcmReader::convert(const AVFrame* frame) {
    if (frame != nullptr && !matches(*frame)) {
        if (converter_) {
            convert(nullptr);
        }
        configure(*frame);
    }
    const int consumed = frame != nullptr ? frame->nb_samples : 0;
    consumed_ += consumed;
    const int room = swr_get_out_samples(converter_.get(), consumed);
    std::uint8_t* planes[2] = {};
    if (room < 0 ||
        av_samples_alloc(planes, nullptr, format_.channels, std::max(room, 1), AV_SAMPLE_FMT_FLTP, 0) < 0) {
        throw outOfMemory();
    }
    const auto** input = frame != nullptr ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr;
    int count = swr_convert(converter_.get(), planes, room, input, consumed);
    if (frame == nullptr && count >= 0) {
        // The resampler's own end may be off by a sample; the true one follows from what went in.
        const std::int64_t total = av_rescale(consumed_, format_.rate, configured_->sample_rate);
        count = static_cast<int>(std::clamp<std::int64_t>(total - produced_, 0, count));
    }
    if (count > 0) {
        for (int channel = 0; channel < format_.channels; ++channel) {
            makeFinite(reinterpret_cast<float*>(planes[channel]), count, gain_);
        }
        if (av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(planes), count) < count) {
            count = AVERROR(ENOMEM);
        }
        produced_ += count;
    }
    av_free(planes[0]);
    if (count < 0) {
        throw outOfMemory();
    }
}

const AVFrame* PcmReader::nextFrame() {
    for (;;) {
        const AVFrame* frame = source_.nextFrame();
        if (frame == nullptr || length_.extent == SourceLength::Extent::everything) {
            return frame;
        }
        const auto scaled = [&](std::int64_t samples) {
            return av_rescale(samples, frame->sample_rate, length_.rate);
        };
        const std::int64_t begin = scaled(length_.samplesBefore);
        const std::int64_t end = begin + scaled(length_.samples);
        const std::int64_t from = std::clamp<std::int64_t>(begin - decoded_, 0, frame->nb_samples);
        const std::int64_t to = std::clamp<std::int64_t>(end - decoded_, from, frame->nb_samples);
        decoded_ += frame->nb_samples;
        if (to == frame->nb_samples && from == 0) {
            return frame;
        }
        if (from < to) {
            return part(*frame, static_cast<int>(from), static_cast<int>(to));
        }
        if (decoded_ >= end) {
            return nullptr;
        }
    }
}

const AVFrame* PcmReader::part(const AVFrame& frame, int from, int to) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    av_frame_unref(cut_.get());
    cut_->format = frame.format;
    cut_->sample_rate = frame.sample_rate;
    cut_->nb_samples = to - from;
    if (av_channel_layout_copy(&cut_->ch_layout, &frame.ch_layout) < 0 ||
        av_frame_get_buffer(cut_.get(), 0) < 0 ||
        av_samples_copy(cut_->extended_data, frame.extended_data, 0, from, to - from,
                        frame.ch_layout.nb_channels, format) < 0) {
        throw outOfMemory();
    }
    return cut_.get();
}

void PcmReader::pull() {
    const AVFrame* frame = nextFrame();
    if (frame == nullptr) {
        state_ = State::ended;
    }
    convert(frame);
}

int PcmReader::read(float* const* planes, int samples) {
    while (state_ == State::reading && av_audio_fifo_size(fifo_.get()) < samples) {
        pull();
    }
    const int count =
        av_audio_fifo_read(fifo_.get(), const_cast<void**>(reinterpret_cast<void* const*>(planes)), samples);
    if (count < 0) {
        throw outOfMemory();
    }
    return count;
}

} // namespace cadora
