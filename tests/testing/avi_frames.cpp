// SPDX-License-Identifier: GPL-3.0-or-later
#include "testing/avi_frames.h"

#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace testing_support {

namespace {

void Check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("cannot read the AVI: " + what);
}

void Keep(AviContents& out, const AVFrame& f) {
  img::image picture(uint32_t(f.width), uint32_t(f.height));
  // swscale does not carry alpha out of planes exactly: planar RGB is read here.
  if (f.format == AV_PIX_FMT_GBRAP || f.format == AV_PIX_FMT_GBRP) {
    for (int y = 0; y < f.height; ++y)
      for (int x = 0; x < f.width; ++x) {
        uint8_t* p = picture.rows[y] + 4 * x;
        p[0] = f.data[1][y * f.linesize[1] + x];
        p[1] = f.data[0][y * f.linesize[0] + x];
        p[2] = f.data[2][y * f.linesize[2] + x];
        p[3] = f.format == AV_PIX_FMT_GBRAP ? f.data[3][y * f.linesize[3] + x] : 255;
      }
    out.frames.push_back(std::move(picture));
    return;
  }
  SwsContext* s =
      sws_getContext(f.width, f.height, AVPixelFormat(f.format), f.width, f.height, AV_PIX_FMT_BGRA,
                     SWS_POINT | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr);
  Check(s != nullptr, "no conversion to BGRA");
  uint8_t* dst[4] = {picture.rows[0], nullptr, nullptr, nullptr};
  const int stride[4] = {int(picture.stride), 0, 0, 0};
  sws_scale(s, f.data, f.linesize, 0, f.height, dst, stride);
  sws_freeContext(s);
  out.frames.push_back(std::move(picture));
}

}  // namespace

AviContents ReadAvi(const std::string& file) {
  AviContents out;
  AVFormatContext* format = nullptr;
  Check(avformat_open_input(&format, file.c_str(), nullptr, nullptr) == 0, "open " + file);
  std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> closer(
      format, [](AVFormatContext* f) { avformat_close_input(&f); });
  Check(avformat_find_stream_info(format, nullptr) >= 0, "stream info");
  const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  Check(index >= 0, "no video stream");
  const AVStream* stream = format->streams[index];
  out.rate_num = stream->avg_frame_rate.num;
  out.rate_den = stream->avg_frame_rate.den;
  const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
  Check(codec != nullptr, "no decoder");
  out.codec = codec->name;
  AVCodecContext* c = avcodec_alloc_context3(codec);
  std::unique_ptr<AVCodecContext, void (*)(AVCodecContext*)> free_c(
      c, [](AVCodecContext* x) { avcodec_free_context(&x); });
  Check(avcodec_parameters_to_context(c, stream->codecpar) >= 0, "parameters");
  c->thread_count = 1;
  Check(avcodec_open2(c, codec, nullptr) == 0, "open decoder");
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  auto receive = [&] {
    while (avcodec_receive_frame(c, frame) == 0) {
      const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(AVPixelFormat(frame->format));
      out.alpha = d && (d->flags & AV_PIX_FMT_FLAG_ALPHA);
      Keep(out, *frame);
      av_frame_unref(frame);
    }
  };
  while (av_read_frame(format, packet) >= 0) {
    if (packet->stream_index == index) {
      Check(avcodec_send_packet(c, packet) >= 0, "decode");
      receive();
    }
    av_packet_unref(packet);
  }
  avcodec_send_packet(c, nullptr);
  receive();
  av_frame_free(&frame);
  av_packet_free(&packet);
  return out;
}

}  // namespace testing_support
