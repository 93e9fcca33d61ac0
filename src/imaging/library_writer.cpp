// SPDX-License-Identifier: GPL-3.0-or-later
// Encoding: the image is converted into a frame of the encoder's pixel
// format, encoded in memory, and only then written to the file in one go.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <functional>

#include "imaging/av_support.h"
#include "imaging/library_io.h"
#include "imaging/palette_picture.h"

namespace img {
namespace {

constexpr const char* kWriteFailure = "could not open image file for writing or write error";
constexpr const char* kUnknownWord = "file format is not supported";
constexpr const char* kEncodeFailure = "image encoding failure";
constexpr const char* kNoPixels = "image has no pixels";

const std::vector<std::string> kExtensions = {"BMP",  "JPEG", "JPG", "GIF", "TIF",
                                              "TIFF", "PNG",  "DPX", "EXR"};

// JPEG quality as the encoder's fixed quantiser scale (2 best .. 31 worst).
// The encoder's own default is a bit rate meant for video, which gives a
// still picture whatever quality the rate control first guesses.
constexpr int kJpegQuantiser = 3;

struct Target {
  AVCodecID codec;
  AVPixelFormat with_alpha;
  AVPixelFormat without_alpha;
};

bool TargetOf(const std::string& format, Target& target) {
  std::string word = format;
  for (char& c : word) c = char(std::toupper(static_cast<unsigned char>(c)));
  if (word == "BMP")
    target = {AV_CODEC_ID_BMP, AV_PIX_FMT_BGRA, AV_PIX_FMT_BGR24};
  else if (word == "JPEG" || word == "JPG")
    target = {AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ420P};
  else if (word == "GIF")
    target = {AV_CODEC_ID_GIF, AV_PIX_FMT_PAL8, AV_PIX_FMT_PAL8};
  else if (word == "TIF" || word == "TIFF")
    target = {AV_CODEC_ID_TIFF, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24};
  else if (word == "PNG")
    target = {AV_CODEC_ID_PNG, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24};
  else if (word == "DPX")
    target = {AV_CODEC_ID_DPX, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24};
  else if (word == "EXR")
    target = {AV_CODEC_ID_EXR, AV_PIX_FMT_GBRAPF32LE, AV_PIX_FMT_GBRPF32LE};
  else
    return false;
  return true;
}

// Converts through libswscale, reading the image's rows in picture order
// whatever its own row order.
void Scale(const image& picture, AVFrame& frame, const std::string& name) {
  AVPixelFormat target = AVPixelFormat(frame.format);
  const bool jpeg = target == AV_PIX_FMT_YUVJ420P;
  if (jpeg) target = AV_PIX_FMT_YUV420P;  // same planes; the range is set below
  // Chroma subsampling wants a real filter; the RGB shuffles are exact with any.
  const int flags = (jpeg ? SWS_BICUBIC : SWS_POINT) | SWS_ACCURATE_RND | SWS_BITEXACT;
  const int w = int(picture.width), h = int(picture.height);
  av::ScalePtr scaler(
      sws_getContext(w, h, AV_PIX_FMT_BGRA, w, h, target, flags, nullptr, nullptr, nullptr));
  if (!scaler) throw io_error(kEncodeFailure, name);
  if (jpeg) {
    const int* matrix = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(scaler.get(), matrix, 1, matrix, 1, 0, 1 << 16, 1 << 16);
  }
  const uint8_t* src[4] = {picture.rows[0], nullptr, nullptr, nullptr};
  const int step = picture.top_down ? int(picture.stride) : -int(picture.stride);
  const int src_stride[4] = {step, 0, 0, 0};
  if (sws_scale(scaler.get(), src, src_stride, 0, h, frame.data, frame.linesize) != h)
    throw io_error(kEncodeFailure, name);
}

// Planar float, channel / 255: EXR holds linear light values, and 1.0 is
// full intensity.
void FillFloat(const image& picture, AVFrame& frame, bool with_alpha) {
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint8_t* src = picture.rows[y];
    auto* g = reinterpret_cast<float*>(frame.data[0] + ptrdiff_t(y) * frame.linesize[0]);
    auto* b = reinterpret_cast<float*>(frame.data[1] + ptrdiff_t(y) * frame.linesize[1]);
    auto* r = reinterpret_cast<float*>(frame.data[2] + ptrdiff_t(y) * frame.linesize[2]);
    float* a = with_alpha
                   ? reinterpret_cast<float*>(frame.data[3] + ptrdiff_t(y) * frame.linesize[3])
                   : nullptr;
    for (uint32_t x = 0; x < picture.width; ++x) {
      b[x] = float(src[4 * x + 0]) / 255.0f;
      g[x] = float(src[4 * x + 1]) / 255.0f;
      r[x] = float(src[4 * x + 2]) / 255.0f;
      if (a) a[x] = float(src[4 * x + 3]) / 255.0f;
    }
  }
}

void FillPalette(const image& picture, AVFrame& frame, bool with_alpha) {
  const palette_picture reduced = make_palette_picture(picture, with_alpha);
  // Unused entries stay opaque: the encoder takes the least opaque entry
  // below alpha 128 as the transparent colour.
  auto* palette = reinterpret_cast<uint32_t*>(frame.data[1]);
  for (int i = 0; i < 256; ++i) palette[i] = 0xFF000000u;
  std::memcpy(palette, reduced.palette.data(), reduced.palette.size() * 4);
  for (uint32_t y = 0; y < picture.height; ++y)
    std::memcpy(frame.data[0] + ptrdiff_t(y) * frame.linesize[0],
                reduced.indices.data() + size_t(y) * picture.width, picture.width);
}

// Encodes one picture of the given size; `fill` puts the pixels into the
// encoder's frame, already allocated in `format`.
std::vector<uint8_t> Encode(const Target& target,
                            AVPixelFormat format,
                            uint32_t width,
                            uint32_t height,
                            const std::function<void(AVFrame&)>& fill,
                            const std::string& name) {
  const AVCodec* codec = avcodec_find_encoder(target.codec);
  if (!codec) throw io_error(kUnknownWord, name);
  av::CodecContextPtr context(avcodec_alloc_context3(codec));
  av::FramePtr frame(av_frame_alloc());
  av::PacketPtr packet(av_packet_alloc());
  if (!context || !frame || !packet) throw io_error(kEncodeFailure, name);

  context->width = int(width);
  context->height = int(height);
  context->pix_fmt = format;
  context->time_base = AVRational{1, 25};
  context->thread_count = 1;
  if (target.codec == AV_CODEC_ID_MJPEG) {
    context->color_range = AVCOL_RANGE_JPEG;
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = FF_QP2LAMBDA * kJpegQuantiser;
  }
  if (avcodec_open2(context.get(), codec, nullptr) < 0) throw io_error(kEncodeFailure, name);

  frame->format = format;
  frame->width = context->width;
  frame->height = context->height;
  if (av_frame_get_buffer(frame.get(), 0) < 0) throw io_error(kEncodeFailure, name);
  if (target.codec == AV_CODEC_ID_MJPEG) {
    frame->color_range = AVCOL_RANGE_JPEG;
    frame->quality = context->global_quality;
  }
  fill(*frame);

  std::vector<uint8_t> bytes;
  if (avcodec_send_frame(context.get(), frame.get()) < 0 ||
      avcodec_send_frame(context.get(), nullptr) < 0)
    throw io_error(kEncodeFailure, name);
  for (;;) {
    const int result = avcodec_receive_packet(context.get(), packet.get());
    if (result == AVERROR_EOF) break;
    if (result < 0) throw io_error(kEncodeFailure, name);
    bytes.insert(bytes.end(), packet->data, packet->data + packet->size);
    av_packet_unref(packet.get());
  }
  if (bytes.empty()) throw io_error(kEncodeFailure, name);
  // The GIF encoder's packet is the header, palette and picture; the
  // stream's trailer is a container's job, and here there is no container.
  if (target.codec == AV_CODEC_ID_GIF) {
    if (bytes.size() < 6 || std::memcmp(bytes.data(), "GIF8", 4) != 0)
      throw io_error(kEncodeFailure, name);
    bytes.push_back(0x3B);
  }
  return bytes;
}

std::vector<uint8_t> EncodeImage(const Target& target,
                                 const image& picture,
                                 bool with_alpha,
                                 const std::string& name) {
  av::quiet_library_log();
  const AVPixelFormat format = with_alpha ? target.with_alpha : target.without_alpha;
  auto fill = [&](AVFrame& frame) {
    if (format == AV_PIX_FMT_PAL8)
      FillPalette(picture, frame, with_alpha);
    else if (target.codec == AV_CODEC_ID_EXR)
      FillFloat(picture, frame, with_alpha);
    else
      Scale(picture, frame, name);
  };
  return Encode(target, format, picture.width, picture.height, fill, name);
}

// One write of the finished bytes. Whatever fails after the file was
// created removes it, so no partial file stays behind.
void WriteAll(const std::string& name, const std::vector<uint8_t>& bytes) {
  const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) throw io_error(kWriteFailure, name);
  const uint8_t* at = bytes.data();
  size_t left = bytes.size();
  bool ok = true;
  while (left > 0) {
    const ssize_t n = ::write(fd, at, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = false;
      break;
    }
    at += n;
    left -= size_t(n);
  }
  if (::close(fd) != 0) ok = false;
  if (!ok) {
    ::unlink(name.c_str());
    throw io_error(kWriteFailure, name);
  }
}

}  // namespace

void library_writer::extensions(std::vector<std::string>& out) const {
  out = kExtensions;
}

std::string library_writer::filter() const {
  return make_filter(kExtensions);
}

uint64_t library_writer::write(const std::string& name,
                               const std::string& format,
                               const image& picture,
                               bool with_alpha) {
  Target target{};
  if (!TargetOf(format, target)) throw io_error(kUnknownWord, name);
  if (picture.empty() || picture.width == 0 || picture.height == 0) throw io_error(kNoPixels, name);
  if (picture.width > uint32_t(INT_MAX / 4) || picture.height > uint32_t(INT_MAX))
    throw io_error(kEncodeFailure, name);
  const std::vector<uint8_t> bytes = EncodeImage(target, picture, with_alpha, name);
  WriteAll(name, bytes);
  return bytes.size();
}

std::vector<uint8_t> library_writer::encode(const std::string& format,
                                            const image& picture,
                                            bool with_alpha) const {
  Target target{};
  if (!TargetOf(format, target)) throw io_error(kUnknownWord);
  if (picture.empty() || picture.width == 0 || picture.height == 0) throw io_error(kNoPixels);
  if (picture.width > uint32_t(INT_MAX / 4) || picture.height > uint32_t(INT_MAX))
    throw io_error(kEncodeFailure);
  return EncodeImage(target, picture, with_alpha, std::string());
}

std::vector<uint8_t> encode_png(const bitmap<bit1>& mask) {
  if (mask.empty() || mask.width == 0 || mask.height == 0) throw io_error(kNoPixels);
  if (mask.width > uint32_t(INT_MAX / 4) || mask.height > uint32_t(INT_MAX))
    throw io_error(kEncodeFailure);
  av::quiet_library_log();
  // The mask's rows are already the encoder's one-bit format: first pixel
  // in the top bit, 1 white. Bits past the width are cleared, since the
  // encoder stores whole bytes.
  const uint64_t row_bytes = bit1::row_bytes(mask.width);
  const unsigned tail_bits = mask.width % 8;
  const uint8_t tail_mask = tail_bits == 0 ? 0xFF : uint8_t(0xFF << (8 - tail_bits));
  auto fill = [&](AVFrame& frame) {
    for (uint32_t y = 0; y < mask.height; ++y) {
      uint8_t* dst = frame.data[0] + ptrdiff_t(y) * frame.linesize[0];
      std::memcpy(dst, mask.rows[y], row_bytes);
      dst[row_bytes - 1] &= tail_mask;
    }
  };
  const Target target{AV_CODEC_ID_PNG, AV_PIX_FMT_MONOBLACK, AV_PIX_FMT_MONOBLACK};
  return Encode(target, AV_PIX_FMT_MONOBLACK, mask.width, mask.height, fill, std::string());
}

}  // namespace img
