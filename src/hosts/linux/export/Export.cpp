#include "hosts/linux/export/Export.h"

#include "hosts/linux/export/AacEncoder.h"
#include "hosts/linux/export/AudioSource.h"
#include "hosts/linux/export/M4aWriter.h"
#include "hosts/linux/export/PcmReader.h"

#include <span>

namespace cadora {

ExportResult exportM4a(int source, int output, const EncodingPlan& plan) {
    AudioSource sound(source);
    PcmReader reader(sound);
    M4aWriter writer(output, AacEncoder(reader.format()).context(), sound.tags());
    ChunkedEncoder encoder(reader, plan);
    const std::int64_t samples =
        encoder.run([&](std::span<const std::uint8_t> packet) { writer.write(packet); });
    writer.finish(samples);
    return {samples, reader.format().rate};
}

} // namespace cadora
