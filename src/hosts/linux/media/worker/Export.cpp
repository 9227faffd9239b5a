#include "hosts/linux/media/worker/Export.h"

#include "hosts/linux/media/worker/AacEncoder.h"
#include "hosts/linux/media/worker/AudioSource.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "hosts/linux/media/worker/Loudness.h"
#include "hosts/linux/media/worker/M4aWriter.h"
#include "hosts/linux/media/worker/PcmReader.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <span>

namespace cadora {

namespace {

std::int64_t encode(PcmReader& reader, std::int64_t frames, Crew* crew, const PacketSink& sink) {
    return crew != nullptr ? ChunkedEncoder(reader, EncodingPlan::forSound(frames), *crew).run(sink)
                           : encodeInSequence(reader, sink);
}

} // namespace

ExportResult exportM4a(const OpenFile& source, const SourceLength& length, const OpenFile& output,
                       Crew* crew) {
    if (length.samples <= 0) {
        throw noDuration();
    }
    const float peak = measurePeak(source, length);
    const float gain = gainFor(peak);
    AudioSource sound(source);
    PcmReader reader(sound, length, gain);
    const int rate = reader.format().rate;
    M4aWriter writer(output, AacEncoder(reader.format(), AacCoder::thorough).context(), sound.tags(),
                     sound.labels(gain));
    const auto write = [&](std::span<const std::uint8_t> packet) { writer.write(packet); };
    const std::int64_t frames = av_rescale(length.samples, rate, length.rate) / AacEncoder::frameSize + 1;
    const std::int64_t samples = encode(reader, frames, crew, write);
    writer.finish(samples);
    return {samples, rate, gain == 1.0F ? "" : describeGain(gain, peak)};
}

} // namespace cadora
