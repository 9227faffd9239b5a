#pragma once

#include <cstdint>

namespace cadora {

// How long a source really is: samples at a rate in Hz. It can be zero.
struct SourceLength {
    std::int64_t samples = 0;
    int rate = 0;

    double seconds() const { return static_cast<double>(samples) / rate; }
};

// Measures the sound of the file behind the descriptor, whatever its headers claim: raw samples by the
// bytes that are there, compressed sound by its packets, and by decoding where packets don't tell.
// Throws ExportError.
SourceLength measureSource(int descriptor);

} // namespace cadora
