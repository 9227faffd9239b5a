#pragma once

#include "hosts/linux/media/worker/OpenFile.h"

#include <cstdint>

namespace cadora {

// How long a source really is, in samples at its own rate in Hz. It can be zero.
struct SourceLength {
    std::int64_t samples = 0;
    int rate = 0;

    // Which part of what the decoder gives that is: where the container marks the part that counts (an
    // edit list, a packet table), decoders give more at the end and, for some, at the start.
    enum class Extent { everything, markedPart } extent = Extent::everything;
    std::int64_t samplesBefore = 0; // to be left out at the start; zero where the decoder does that itself

    double seconds() const { return static_cast<double>(samples) / rate; }
};

// Measures the sound of a file, whatever its headers claim: raw samples by the bytes that are there,
// compressed sound by its packets, and by decoding where packets don't tell. Throws ExportError, also
// for what is longer than its bytes can be or sampled more slowly than sound is.
SourceLength measureSource(const OpenFile& file);

} // namespace cadora
