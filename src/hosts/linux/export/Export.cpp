#include "hosts/linux/export/Export.h"

#include "hosts/linux/export/AacEncoder.h"
#include "hosts/linux/export/AudioSource.h"
#include "hosts/linux/export/M4aWriter.h"
#include "hosts/linux/export/PcmReader.h"

#include <array>
#include <vector>

namespace cadora {

ExportResult exportM4a(int source, int output) {
    AudioSource sound(source);
    PcmReader reader(sound);
    AacEncoder encoder(reader.format());
    M4aWriter writer(output, encoder.context(), sound.tags());
    const AacEncoder::Sink sink = [&](const AVPacket& packet) {
        writer.write({packet.data, static_cast<std::size_t>(packet.size)});
    };
    std::vector<float> samples(static_cast<std::size_t>(2) * AacEncoder::frameSize);
    const std::array<float*, 2> planes = {samples.data(), samples.data() + AacEncoder::frameSize};
    ExportResult result{0, reader.format().rate};
    while (const int count = reader.read(planes.data(), AacEncoder::frameSize)) {
        encoder.encode(planes.data(), count, sink);
        result.samples += count;
    }
    encoder.finish(sink);
    writer.finish(result.samples);
    return result;
}

} // namespace cadora
