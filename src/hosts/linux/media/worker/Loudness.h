#pragma once

#include "hosts/linux/media/worker/OpenFile.h"
#include "hosts/linux/media/worker/SourceLength.h"

#include <string>

namespace cadora {

// The largest sample of the measured part of a source, as the encoder would be given it; 1.0 is full scale.
// Decodes the whole of it. Throws ExportError.
float measurePeak(const OpenFile& source, const SourceLength& length);

// The one factor for all samples of a sound with this peak. Each channel of each frame with a peak above 0.95
// is turned down by the encoder, by itself and not always; so no frame is to have one.
float gainFor(float peak);

// What is said of a factor other than 1.
std::string describeGain(float gain, float peak);

} // namespace cadora
