#include "hosts/linux/media/worker/Export.h"

#include "hosts/linux/media/worker/AacEncoder.h"
#include "hosts/linux/media/worker/AudioSource.h"
#include "hosts/linux/media/worker/ExportError.h"
#include "hosts/linux/media/worker/M4aWriter.h"
#include "hosts/linux/media/worker/PcmReader.h"

#include <span>

namespace cadora {

ExportResult exportM4a(const OpenFile& source, const SourceLength& length, const OpenFile& output,
                       const EncodingPlan& plan, Crew& crew) {
    if (length.samples <= 0) {
        throw noDuration();
    }
    AudioSource sound(source);
    PcmReader reader(sound, length);
    M4aWriter writer(output, AacEncoder(reader.format()).context(), sound.tags());
    const auto write = [&](std::span<const std::uint8_t> packet) { writer.write(packet); };
    // For what fits one chunk a single encoder gives the same packets without holding samples.
    const double frames = length.seconds() * reader.format().rate / AacEncoder::frameSize;
    const std::int64_t samples = frames < plan.chunkFrames ? encodeInSequence(reader, write)
                                                           : ChunkedEncoder(reader, plan, crew).run(write);
    writer.finish(samples);
    return {samples, reader.format().rate};
}

} // namespace cadora
