#pragma once

// Owning handles for FFmpeg's objects, one per type, each freed the way that FFmpeg asks for.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <new>

namespace cadora {

struct FfmpegDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(SwrContext* context) const { swr_free(&context); }
    void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
};

using CodecContextHandle = std::unique_ptr<AVCodecContext, FfmpegDeleter>;
using PacketHandle = std::unique_ptr<AVPacket, FfmpegDeleter>;
using FrameHandle = std::unique_ptr<AVFrame, FfmpegDeleter>;
using SwrHandle = std::unique_ptr<SwrContext, FfmpegDeleter>;
using AudioFifoHandle = std::unique_ptr<AVAudioFifo, FfmpegDeleter>;

inline PacketHandle makePacket() {
    PacketHandle packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    return packet;
}

inline FrameHandle makeFrame() {
    FrameHandle frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    return frame;
}

} // namespace cadora
