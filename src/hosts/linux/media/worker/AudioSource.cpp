#include "hosts/linux/media/worker/AudioSource.h"

#include "hosts/linux/media/worker/ExportError.h"
#include "hosts/linux/media/worker/Lifeline.h"
#include "hosts/linux/media/worker/Tags.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <unistd.h>

namespace cadora {

namespace {

// The containers of sound and the common ones of video. None of them is a list of other files.
constexpr const char* allowedFormats = "wav,aiff,mp3,mov,aac,caf,au,flac,ogg,matroska,avi";

constexpr const char* allowedDecoders =
    "pcm_u8,pcm_s8,pcm_s8_planar,pcm_s16le,pcm_s16be,pcm_u16le,pcm_u16be,pcm_s16le_planar,pcm_s16be_planar,"
    "pcm_s24le,pcm_s24be,pcm_u24le,pcm_u24be,pcm_s24le_planar,pcm_s32le,pcm_s32be,pcm_u32le,pcm_u32be,"
    "pcm_s32le_planar,pcm_f32le,pcm_f32be,pcm_f64le,pcm_f64be,pcm_alaw,pcm_mulaw,"
    "adpcm_ima_wav,adpcm_ima_qt,adpcm_ms,mp1float,mp2float,mp3float,aac,alac,flac,vorbis,opus,ac3,eac3";

// A cover picture in front of an MP3's first frame may be larger than what FFmpeg looks at.
constexpr int probeSize = 1 << 20;
constexpr int largestProbeSize = 64 << 20;

int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EACCES);
}

int probeSizeFor(int descriptor) {
    std::array<unsigned char, 10> head{};
    if (pread(descriptor, head.data(), head.size(), 0) != static_cast<ssize_t>(head.size()) ||
        std::memcmp(head.data(), "ID3", 3) != 0) {
        return probeSize;
    }
    const int tagSize =
        (head[6] & 0x7f) << 21 | (head[7] & 0x7f) << 14 | (head[8] & 0x7f) << 7 | (head[9] & 0x7f);
    return std::min(tagSize, largestProbeSize - probeSize) + probeSize;
}

} // namespace

AudioSource::AudioSource(const OpenFile& file, Edits edits)
    : io_(file, DescriptorIo::Mode::read), packet_(makePacket()), frame_(makeFrame()), silence_(makeFrame()) {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->pb = io_.context();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->io_open = refuseToOpen;
    context->format_probesize = probeSizeFor(file.descriptor);
    context->format_whitelist = av_strdup(allowedFormats);
    context->codec_whitelist = av_strdup(allowedDecoders);
    context->protocol_whitelist = av_strdup("");
    format_.reset(context);
    open(edits);
    chooseStream();
}

void AudioSource::failReading() const {
    if (io_.errorNumber() != 0) {
        throw unreadable(io_.errorNumber());
    }
    throw notAudio();
}

void AudioSource::open(Edits edits) {
    AVFormatContext* context = format_.release(); // FFmpeg frees it when it fails
    AVDictionary* options = nullptr;
    av_dict_set_int(&options, "advanced_editlist", edits == Edits::applied ? 1 : 0, 0);
    const int result = avformat_open_input(&context, "", nullptr, &options);
    av_dict_free(&options);
    format_.reset(context);
    if (result == AVERROR(ENOMEM)) {
        throw outOfMemory();
    }
    if (result < 0) {
        failReading();
    }
    bool hasVideo = false;
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        AVStream& stream = *format_->streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) {
            stream.discard = AVDISCARD_ALL;
            hasVideo = hasVideo || (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                                    (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0);
        }
    }
    // Looking closer would parse the pictures as well, which are none of our business; the containers of
    // video say all that is needed about their sound.
    if (!hasVideo && avformat_find_stream_info(format_.get(), nullptr) < 0) {
        failReading();
    }
}

void AudioSource::chooseStream() {
    const int index = av_find_best_stream(format_.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index < 0) {
        throw noSound();
    }
    stream_ = format_->streams[index];
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        format_->streams[i]->discard = i == static_cast<unsigned>(index) ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

const AVPacket* AudioSource::nextPacket() {
    for (;;) {
        noteProgress();
        av_packet_unref(packet_.get());
        const int result = av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR(ENOMEM)) {
            throw outOfMemory();
        }
        if (result < 0) {
            if (io_.errorNumber() != 0) {
                throw unreadable(io_.errorNumber());
            }
            return nullptr; // the end, or where a damaged file stops making sense
        }
        // Of a file that was cut off, raw samples are good to the last; half a packet of others isn't.
        const bool useless = (packet_->flags & AV_PKT_FLAG_CORRUPT) != 0 &&
                             av_get_bits_per_sample(stream_->codecpar->codec_id) == 0;
        if (packet_->stream_index == stream_->index && !useless) {
            return packet_.get();
        }
    }
}

bool AudioSource::seek(std::int64_t timestamp) {
    return av_seek_frame(format_.get(), stream_->index, timestamp, AVSEEK_FLAG_BACKWARD) >= 0;
}

CodecContextHandle AudioSource::makeDecoder() const {
    const AVCodec* codec = avcodec_find_decoder(stream_->codecpar->codec_id);
    if (codec == nullptr || av_match_name(codec->name, allowedDecoders) == 0) {
        const bool isProtected = stream_->codecpar->codec_tag == MKTAG('d', 'r', 'm', 's') ||
                                 stream_->codecpar->codec_tag == MKTAG('e', 'n', 'c', 'a');
        if (isProtected) {
            throw ExportError(ExportFailure::cannotDecode,
                              "The sound in this file is protected against copying and can’t be converted.");
        }
        throw ExportError(
            ExportFailure::cannotDecode,
            std::string("The sound in this file couldn’t be decoded: it is of a kind that can’t be "
                        "read here (") +
                avcodec_get_name(stream_->codecpar->codec_id) + ").");
    }
    CodecContextHandle decoder(avcodec_alloc_context3(codec));
    if (!decoder) {
        throw std::bad_alloc();
    }
    if (avcodec_parameters_to_context(decoder.get(), stream_->codecpar) < 0) {
        throw damaged();
    }
    decoder->pkt_timebase = stream_->time_base;
    decoder->thread_count = 1;
    decoder->codec_whitelist = av_strdup(allowedDecoders);
    const int result = avcodec_open2(decoder.get(), codec, nullptr);
    if (result == AVERROR(ENOMEM)) {
        throw outOfMemory();
    }
    if (result < 0) {
        throw damaged();
    }
    return decoder;
}

bool AudioSource::decodes(const AVPacket& packet) const {
    const CodecContextHandle decoder = makeDecoder();
    const FrameHandle frame = makeFrame();
    return avcodec_send_packet(decoder.get(), &packet) >= 0 &&
           avcodec_send_packet(decoder.get(), nullptr) >= 0 &&
           avcodec_receive_frame(decoder.get(), frame.get()) >= 0;
}

void AudioSource::noteBadPacket(const AVPacket& packet) {
    ++badPackets_;
    // Before anything was heard there is nothing that the silence would keep in time.
    if (goodPackets_ > 0) {
        constexpr std::int64_t longestPacket = 65536;
        const std::int64_t samples =
            av_rescale_q(packet.duration, stream_->time_base, AVRational{1, decoder_->sample_rate});
        silenceOwed_ += std::clamp<std::int64_t>(samples, 0, longestPacket);
    }
}

const AVFrame* AudioSource::owedSilence() {
    constexpr std::int64_t longestPiece = 8192;
    av_frame_unref(silence_.get());
    silence_->nb_samples = static_cast<int>(std::min(silenceOwed_, longestPiece));
    silence_->format = frame_->format;
    silence_->sample_rate = frame_->sample_rate;
    if (av_channel_layout_copy(&silence_->ch_layout, &frame_->ch_layout) < 0 ||
        av_frame_get_buffer(silence_.get(), 0) < 0) {
        throw outOfMemory();
    }
    av_samples_set_silence(silence_->extended_data, 0, silence_->nb_samples, silence_->ch_layout.nb_channels,
                           static_cast<AVSampleFormat>(silence_->format));
    silenceOwed_ -= silence_->nb_samples;
    return silence_.get();
}

const AVFrame* AudioSource::nextFrame() {
    if (!decoder_) {
        decoder_ = makeDecoder();
    }
    if (frameState_ == FrameState::waitsBehindSilence) {
        if (silenceOwed_ > 0) {
            return owedSilence();
        }
        frameState_ = FrameState::given;
        return frame_.get();
    }
    for (;;) {
        av_frame_unref(frame_.get());
        int result = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (result >= 0) {
            if (frame_->nb_samples == 0) {
                continue;
            }
            ++goodPackets_;
            if (silenceOwed_ > 0) {
                frameState_ = FrameState::waitsBehindSilence;
                return owedSilence();
            }
            return frame_.get();
        }
        if (result == AVERROR(ENOMEM)) {
            throw outOfMemory();
        }
        if (result == AVERROR_EOF || feed_ == Feed::flushed) {
            if (badPackets_ > goodPackets_) {
                throw damaged();
            }
            return nullptr;
        }
        const AVPacket* packet = nextPacket();
        if (packet == nullptr) {
            feed_ = Feed::flushed;
        }
        result = avcodec_send_packet(decoder_.get(), packet);
        if (result == AVERROR(ENOMEM)) {
            throw outOfMemory();
        }
        if (result < 0 && packet != nullptr) {
            noteBadPacket(*packet);
        }
    }
}

std::map<std::string, std::string> AudioSource::allTags() const {
    std::map<std::string, std::string> result;
    // Ogg keeps its tags with the stream; where both have one, the container speaks for the whole file.
    for (const AVDictionary* dictionary : {format_->metadata, stream_->metadata}) {
        const AVDictionaryEntry* entry = nullptr;
        while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
            result.emplace(entry->key, readableText(entry->value));
        }
    }
    return result;
}

std::map<std::string, std::string> AudioSource::tags() const {
    return commonTags(allTags());
}

Labels AudioSource::labels(float gain) const {
    Labels labels = labelsFrom(allTags(), gain);
    for (unsigned i = 0; i < format_->nb_streams; ++i) {
        const AVStream& stream = *format_->streams[i];
        const AVPacket& picture = stream.attached_pic;
        if ((stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 && picture.size > 0) {
            const std::span<const std::uint8_t> bytes(picture.data, static_cast<std::size_t>(picture.size));
            if (isCover(bytes)) {
                labels.cover.assign(bytes.begin(), bytes.end());
                break;
            }
        }
    }
    return labels;
}

} // namespace cadora
