#pragma once

#include "hosts/linux/media/worker/AudioSource.h"
#include "hosts/linux/media/worker/FfmpegHandles.h"
#include "hosts/linux/media/worker/SourceLength.h"

#include <cstdint>

namespace cadora {

// The form in which sound is encoded.
struct PcmFormat {
    int rate = 0;     // Hz, one that AAC has
    int channels = 0; // 1 or 2
};

// The form in which a source's sound is encoded: its own rate where AAC has it, else the next higher one,
// and at most 48 kHz, in whole fractions where possible; mono stays mono, all else becomes stereo.
PcmFormat pcmFormatFor(int rate, int channels);

// A source's sound as planar float samples at one rate, with 1.0 as full scale. Values stay as they are,
// times the given factor, unless they aren't numbers. More than two channels are folded down to stereo as
// ITU-R BS.775 does it: the sides as they are, the centre and the surrounds 3 dB lower, and nothing of the
// low-frequency effects; the sum may exceed full scale. Not thread-safe; throws ExportError.
class PcmReader {
public:
    // Decodes the first piece, which tells the format. Reads the part of the source that the length
    // marks. A source without any sound throws noDuration.
    PcmReader(AudioSource& source, const SourceLength& length, float gain = 1.0F);

    const PcmFormat& format() const { return format_; }

    // Fills up to `samples` samples of each of the format's channels; less only at the end.
    int read(float* const* planes, int samples);

private:
    void configure(const AVFrame& frame);
    bool matches(const AVFrame& frame) const;
    void convert(const AVFrame* frame);
    void pull();
    const AVFrame* nextFrame();
    const AVFrame* part(const AVFrame& frame, int from, int to);

    AudioSource& source_;
    SourceLength length_;
    float gain_;
    std::int64_t decoded_ = 0; // samples that the source has given so far
    FrameHandle cut_;
    PcmFormat format_;
    SwrHandle converter_;
    AudioFifoHandle fifo_;
    FrameHandle configured_;    // the form that the converter expects; no samples
    std::int64_t consumed_ = 0; // samples at the source's rate since the converter was configured
    std::int64_t produced_ = 0; // samples at our rate
    enum class State { reading, ended } state_ = State::reading;
};

} // namespace cadora
