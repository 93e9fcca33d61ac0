// SPDX-License-Identifier: GPL-3.0-or-later
// Small ownership wrappers and shared settings for the FFmpeg libraries.
//
// Internal to the imaging layer: only the library-backed codec and the video
// writer include it. Every context here belongs to one call on one thread;
// nothing is shared, which is what lets several threads decode at once.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace img::av {

struct CodecContextFree {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameFree {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ScaleFree {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextFree>;
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;
using PacketPtr = std::unique_ptr<AVPacket, PacketFree>;
using ScalePtr = std::unique_ptr<SwsContext, ScaleFree>;

// The libraries print every oddity of a damaged file on standard error. Our
// failures travel as exceptions with their own texts, and velomar-cli's
// output must stay stable, so the libraries' log is silenced once, before the
// first codec is opened (unless VELOMAR_CODEC_LOG is set). Safe to call from any thread, any number
// of times.
void quiet_library_log();

// The libraries' error text for an AVERROR code.
std::string error_text(int code);

}  // namespace img::av
