#include "hosts/linux/media/worker/SourceLength.h"

#include "hosts/linux/media/worker/AudioSource.h"
#include "hosts/linux/media/worker/Bounds.h"
#include "hosts/linux/media/worker/CafPacketTable.h"
#include "hosts/linux/media/worker/ExportError.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace cadora {

namespace {

std::int64_t toSamples(const AVStream& stream, std::int64_t time) {
    return av_rescale_q(time, stream.time_base, AVRational{1, stream.codecpar->sample_rate});
}

bool isRawSamples(const AVStream& stream) {
    const int bits = av_get_bits_per_sample(stream.codecpar->codec_id);
    return bits >= 8 && stream.time_base.num == 1 && stream.time_base.den == stream.codecpar->sample_rate;
}

bool isMovie(const AudioSource& source) {
    return av_match_name("mov", source.formatName()) != 0;
}

// Containers whose packets carry exact durations; others round them or have none at the ends.
bool hasExactPackets(const AudioSource& source) {
    return isMovie(source) || av_match_name(source.formatName(), "wav,aiff,mp3,aac,caf,au,flac") != 0;
}

// A header's claim holds if the file's last sample is where it says.
std::optional<std::int64_t> claimedSamples(const OpenFile& file) {
    AudioSource source(file);
    const AVStream& stream = source.stream();
    if (!isRawSamples(stream) || stream.duration <= 0) {
        return std::nullopt;
    }
    const std::int64_t second = stream.codecpar->sample_rate;
    if (!source.seek(std::max<std::int64_t>(0, stream.duration - second))) {
        return std::nullopt;
    }
    std::int64_t end = 0;
    while (const AVPacket* packet = source.nextPacket()) {
        if (packet->pts == AV_NOPTS_VALUE) {
            return std::nullopt;
        }
        end = packet->pts + packet->duration;
    }
    return end == stream.duration ? std::optional(end) : std::nullopt;
}

std::optional<std::int64_t> scannedSamples(AudioSource& source) {
    const AVStream& stream = source.stream();
    std::int64_t time = 0;
    std::int64_t skipped = 0;
    const PacketHandle last = makePacket();
    while (const AVPacket* packet = source.nextPacket()) {
        if ((packet->flags & AV_PKT_FLAG_DISCARD) != 0) {
            continue;
        }
        if (packet->duration <= 0) {
            return std::nullopt;
        }
        time += packet->duration;
        av_packet_unref(last.get());
        if (av_packet_ref(last.get(), packet) < 0) {
            throw std::bad_alloc();
        }
        size_t size = 0;
        const std::uint8_t* skip = av_packet_get_side_data(packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
        if (skip != nullptr && size >= 10) {
            skipped += static_cast<std::int64_t>(AV_RL32(skip)) + AV_RL32(skip + 4);
        }
    }
    // Of a file that was cut off, the last packet may be a piece that is good for nothing.
    if (last->size > 0 && !isRawSamples(stream) && !source.decodes(*last)) {
        time -= last->duration;
    }
    return std::max<std::int64_t>(0, toSamples(stream, time) - skipped);
}

SourceLength decodedLength(const OpenFile& file) {
    AudioSource source(file);
    SourceLength length;
    length.rate = std::max(1, source.stream().codecpar->sample_rate);
    while (const AVFrame* frame = source.nextFrame()) {
        requirePlausibleRate(frame->sample_rate);
        length.rate = frame->sample_rate;
        length.samples += frame->nb_samples;
    }
    return length;
}

// The edit list counts in ticks of the whole movie, commonly 1/600 or 1/1000 s: where it ends within one of
// the packets' own end, it was only rounded.
SourceLength movieLength(const AudioSource& edited) {
    const AVStream& stream = edited.stream();
    AudioSource unedited(edited.file(), AudioSource::Edits::ignored);
    std::optional<std::int64_t> start;
    std::int64_t end = 0;
    while (const AVPacket* packet = unedited.nextPacket()) {
        start = start ? start : packet->pts;
        // FFmpeg stretches the last packet of the index to the stream's duration, forgetting the start.
        const bool isLast = packet->pts + packet->duration == unedited.stream().duration;
        end = isLast ? packet->pts + packet->duration + std::min<std::int64_t>(0, *start)
                     : packet->pts + packet->duration;
    }
    std::int64_t samples = toSamples(stream, end - std::max<std::int64_t>(0, start.value_or(0)));
    const std::int64_t marked = toSamples(stream, stream.duration);
    const std::int64_t tick = stream.codecpar->sample_rate / 600 + 1;
    if (stream.duration > 0 && std::abs(samples - marked) > tick) {
        samples = std::min(samples, marked);
    }
    return {std::max<std::int64_t>(0, samples), stream.codecpar->sample_rate,
            SourceLength::Extent::markedPart};
}

SourceLength measure(const OpenFile& file) {
    AudioSource source(file);
    const AVStream& stream = source.stream();
    const int rate = stream.codecpar->sample_rate;
    if (rate > 0) {
        requirePlausibleRate(rate);
    }
    if (rate <= 0 || !hasExactPackets(source)) {
        return decodedLength(file);
    }
    if (const auto samples = claimedSamples(file)) {
        return {*samples, rate};
    }
    if (isMovie(source)) {
        return movieLength(source);
    }
    const auto scanned = scannedSamples(source);
    if (const auto table = readCafPacketTable(file)) {
        const SourceLength length = scanned ? SourceLength{*scanned, rate} : decodedLength(file);
        // A table that promises more than there is belongs to a file that was cut off.
        const std::int64_t present = std::max<std::int64_t>(0, length.samples - table->primingSamples);
        return {std::min(table->validSamples, present), rate, SourceLength::Extent::markedPart,
                table->primingSamples};
    }
    if (!scanned) {
        return decodedLength(file);
    }
    return {*scanned, rate};
}

} // namespace

SourceLength measureSource(const OpenFile& file) {
    const SourceLength length = measure(file);
    if (length.samples > 0) {
        requirePlausibleRate(length.rate);
    }
    if (length.seconds() > longestSoundIn(file.size)) {
        throw implausibleLength();
    }
    return length;
}

} // namespace cadora
