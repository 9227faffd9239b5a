#pragma once

#include "hosts/linux/media/worker/Crew.h"
#include "hosts/linux/media/worker/EncodedChunk.h"
#include "hosts/linux/media/worker/PcmReader.h"

#include <cstdint>
#include <functional>
#include <span>

namespace cadora {

// How one sound is spread over several encoders. The packets depend on the frame counts alone, never on
// the number of threads.
struct EncodingPlan {
    int chunkFrames = 1300;         // what one encoder contributes: at most about half a minute
    int prerollFrames = 24;         // what it hears before that, until its rate control has settled
    int shortestPreroll = 8;        // a seam may move earlier, as long as this much was heard
    std::int64_t memory = 64 << 20; // bytes of samples held at once; caps the encoders at work at once

    // For a sound of so many frames: an even number of equal chunks, so that two processors end at the same
    // time; a single one for a sound so short that the pre-roll would cost more than the second gains.
    static EncodingPlan forSound(std::int64_t frames);
};

// The crew that encodes as fast as this machine can: one member reads, each other has an encoder.
int crewForThisMachine();

// What encoders give their packets to, in order.
using PacketSink = std::function<void(std::span<const std::uint8_t> packet)>;

// Encodes a sound with one encoder, on the calling thread, and with one coder whatever it makes of the sound.
// Returns the sound's length in samples.
std::int64_t encodeInSequence(PcmReader& reader, const PacketSink& sink);

// Encodes a sound with several encoders at once, each fresh for its chunk, and joins their packets where
// the decoder can't tell: at a frame for whose predecessor both neighbours chose the same long window.
// Where a chunk offers no such frame, its predecessor's encoder encodes it too. Throws ExportError.
class ChunkedEncoder {
public:
    // The crew is free, and has at least two members.
    ChunkedEncoder(PcmReader& reader, const EncodingPlan& plan, Crew& crew);

    // The sink is called on the calling thread. Returns the sound's length in samples. To be called once.
    std::int64_t run(const PacketSink& sink);

private:
    PcmReader& reader_;
    EncodingPlan plan_;
    Crew& crew_;
    int encoders_;
};

} // namespace cadora
