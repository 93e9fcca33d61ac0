// SPDX-License-Identifier: GPL-3.0-or-later
// Decoding: the file is read in one block into a buffer that the codec's
// packet owns, the decoder is picked by the file's signature, the first
// picture is decoded, and it is converted straight into the caller's image
// through its row order: by libswscale for YUV and packed 8-bit RGB, by a
// per-component rounding for deeper or odd layouts, by lookup for palettes.
// The decoder's own frame is the only other full-size buffer.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>

#include "imaging/av_support.h"
#include "imaging/image_header.h"
#include "imaging/library_io.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace img {
namespace {

// Palette entries are native 0xAARRGGBB words; stored as they are they give
// the blue, green, red, alpha byte order of rgba32 only on a little-endian machine.
static_assert(std::endian::native == std::endian::little);

constexpr const char* kReadFailure = "could not open image file for reading or read error";
constexpr const char* kUnknownContent = "image file format not recognised";
constexpr const char* kDecodeFailure = "image decoding failure";
constexpr const char* kNoPixels = "image has no pixels";
constexpr const char* kConversionFailure = "image conversion failure";
constexpr const char* kTooLarge = "image is too large";
constexpr const char* kTruncated = "image file is shorter than its header says";
constexpr const char* kUnknownWord = "file format is not supported";

const std::vector<std::string> kExtensions = {"BMP",  "JPEG", "JPG", "GIF", "TIF",
                                              "TIFF", "PNG",  "DPX", "EXR"};

bool KnownWord(const std::string& format) {
  std::string word = format;
  for (char& c : word) c = char(std::toupper(static_cast<unsigned char>(c)));
  return std::find(kExtensions.begin(), kExtensions.end(), word) != kExtensions.end();
}

struct BufferUnref {
  void operator()(AVBufferRef* b) const { av_buffer_unref(&b); }
};
using BufferPtr = std::unique_ptr<AVBufferRef, BufferUnref>;

struct FileBytes {
  BufferPtr buffer;  // size + AV_INPUT_BUFFER_PADDING_SIZE bytes, padding zeroed
  size_t size = 0;
};

// The whole file in one read. A packet's size is an int, which bounds the file.
FileBytes ReadWholeFile(const std::string& name) {
  const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw io_error(kReadFailure, name);
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};

  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) throw io_error(kReadFailure, name);
  if (uint64_t(st.st_size) > uint64_t(INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE))
    throw io_error(kTooLarge, name);

  FileBytes file;
  file.size = size_t(st.st_size);
  file.buffer.reset(av_buffer_alloc(file.size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!file.buffer) throw io_error(kReadFailure, name);
  uint8_t* at = file.buffer->data;
  size_t left = file.size;
  while (left > 0) {
    const ssize_t n = ::read(fd, at, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw io_error(kReadFailure, name);  // error, or the file shrank under us
    at += n;
    left -= size_t(n);
  }
  std::memset(file.buffer->data + file.size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
  return file;
}

bool StartsWith(const FileBytes& f, const char* magic, size_t n) {
  return f.size >= n && std::memcmp(f.buffer->data, magic, n) == 0;
}

// The codec, by the file's signature. A fixed table rather than the general
// format prober: the prober also asks every audio and stream demuxer, can
// prefer one of them for a damaged image, and scans the whole buffer.
AVCodecID CodecOfContent(const FileBytes& f) {
  if (StartsWith(f, "\x89PNG\r\n\x1a\n", 8)) return AV_CODEC_ID_PNG;
  if (StartsWith(f, "\xff\xd8\xff", 3)) return AV_CODEC_ID_MJPEG;
  if (StartsWith(f, "GIF87a", 6) || StartsWith(f, "GIF89a", 6)) return AV_CODEC_ID_GIF;
  if (StartsWith(f, "II*\0", 4) || StartsWith(f, "MM\0*", 4)) return AV_CODEC_ID_TIFF;
  if (StartsWith(f, "BM", 2)) return AV_CODEC_ID_BMP;
  if (StartsWith(f, "SDPX", 4) || StartsWith(f, "XPDS", 4)) return AV_CODEC_ID_DPX;
  if (StartsWith(f, "\x76\x2f\x31\x01", 4)) return AV_CODEC_ID_EXR;
  return AV_CODEC_ID_NONE;
}

uint32_t Le16(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8;
}
uint32_t Le32(const uint8_t* p) {
  return Le16(p) | Le16(p + 2) << 16;
}

// The BMP decoder allocates its frame before it compares the header's claim
// with the bytes present, so a 60-byte file could ask for gigabytes. For the
// uncompressed kinds (no compression, or bit fields) the claim is checked
// here first, by the decoder's own rule: rows padded to 4 bytes.
void CheckBmpClaim(const FileBytes& f, const std::string& name) {
  const uint8_t* b = f.buffer->data;
  if (f.size < 30) return;  // the decoder refuses it itself
  const uint32_t offset = Le32(b + 10);
  const uint32_t header = Le32(b + 14);
  uint64_t width, height, bits, compression = 0;
  if (header == 12) {
    width = Le16(b + 18);
    height = Le16(b + 20);
    bits = Le16(b + 24);
  } else {
    if (f.size < 34) return;
    width = uint64_t(std::abs(int64_t(int32_t(Le32(b + 18)))));
    height = uint64_t(std::abs(int64_t(int32_t(Le32(b + 22)))));
    bits = Le16(b + 28);
    compression = Le32(b + 30);
  }
  if (compression != 0 && compression != 3) return;
  const uint64_t row = ((width * bits + 31) / 8) & ~uint64_t(3);
  if (uint64_t(offset) + row * height > f.size) throw io_error(kTruncated, name);
}

// What the frame allocation may take, shared with the allocation hook.
struct Limits {
  uint64_t max_pixels = 0;
  uint64_t file_bytes = 0;
  AVCodecID codec = AV_CODEC_ID_NONE;
  bool refused = false;
};

// Every frame buffer passes here before it is allocated. A DPX the decoder
// takes is uncompressed, at least one bit a pixel, so a header claiming more
// pixels than the file has bits is a lie worth refusing before allocating.
int GuardedGetBuffer(AVCodecContext* c, AVFrame* frame, int flags) {
  auto* limits = static_cast<Limits*>(c->opaque);
  const uint64_t pixels = uint64_t(c->width) * uint64_t(c->height);
  if (pixels > limits->max_pixels ||
      (limits->codec == AV_CODEC_ID_DPX && pixels > limits->file_bytes * 8)) {
    limits->refused = true;
    return AVERROR(ENOMEM);
  }
  return avcodec_default_get_buffer2(c, frame, flags);
}

// Decodes the first picture of the file. The packet takes over the buffer.
av::FramePtr DecodeFirstPicture(AVCodecID id,
                                FileBytes file,
                                uint64_t max_pixels,
                                const std::string& name) {
  const AVCodec* codec = avcodec_find_decoder(id);
  if (!codec) throw io_error(kUnknownContent, name);
  av::CodecContextPtr context(avcodec_alloc_context3(codec));
  av::PacketPtr packet(av_packet_alloc());
  av::FramePtr frame(av_frame_alloc());
  if (!context || !packet || !frame) throw io_error(kDecodeFailure, name);

  Limits limits{max_pixels, file.size, id, false};
  context->opaque = &limits;
  context->get_buffer2 = GuardedGetBuffer;
  // The decoders' own limit guards what they allocate before the frame. It
  // is compared with the width rounded up to the row alignment, so it gets
  // room above ours; the exact limit is the hook's.
  context->max_pixels =
      int64_t(std::min<uint64_t>(max_pixels + max_pixels / 8 + (uint64_t(1) << 18), INT_MAX));
  // Readers already run on several threads at once (cache loaders,
  // prefetcher, tracker); codec threads per picture would only compete.
  context->thread_count = 1;
  // A damaged picture is an error, not half a picture with the rest made
  // up: the tracker would follow the garbage. (The same strictness fails
  // every TIFF with a tag the decoder does not know, so TIFF is left out.)
  if (id == AV_CODEC_ID_PNG) context->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK;
  if (id == AV_CODEC_ID_MJPEG || id == AV_CODEC_ID_GIF || id == AV_CODEC_ID_EXR)
    context->err_recognition = AV_EF_EXPLODE | AV_EF_BUFFER;
  if (avcodec_open2(context.get(), codec, nullptr) < 0) throw io_error(kDecodeFailure, name);

  packet->buf = file.buffer.release();
  packet->data = packet->buf->data;
  packet->size = int(file.size);
  packet->flags |= AV_PKT_FLAG_KEY;

  int result = avcodec_send_packet(context.get(), packet.get());
  if (result >= 0) {
    result = avcodec_receive_frame(context.get(), frame.get());
    if (result == AVERROR(EAGAIN)) {
      avcodec_send_packet(context.get(), nullptr);
      result = avcodec_receive_frame(context.get(), frame.get());
    }
  }
  const bool too_large =
      limits.refused || uint64_t(context->width) * uint64_t(context->height) > max_pixels;
  if (too_large) throw io_error(kTooLarge, name);
  if (result < 0) throw io_error(kDecodeFailure, name);
  if (frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT))
    throw io_error(kDecodeFailure, name);
  if (frame->width <= 0 || frame->height <= 0) throw io_error(kNoPixels, name);
  return frame;
}

// Palette pictures are a table lookup; doing it here keeps the palette's
// alpha exact and tells which colours in use are not opaque.
bool ConvertPalette(const AVFrame& f, image& out) {
  const auto* palette = reinterpret_cast<const uint32_t*>(f.data[1]);
  uint32_t alpha_and = 0xFF000000u;
  for (int y = 0; y < f.height; ++y) {
    const uint8_t* src = f.data[0] + ptrdiff_t(y) * f.linesize[0];
    auto* dst = reinterpret_cast<uint32_t*>(out.rows[size_t(y)]);
    for (int x = 0; x < f.width; ++x) {
      const uint32_t c = palette[src[x]];
      dst[x] = c;
      alpha_and &= c;
    }
  }
  return (alpha_and & 0xFF000000u) != 0xFF000000u;
}

// The full-range JPEG formats are deprecated in libswscale; it wants the
// plain format and the range said separately.
AVPixelFormat PlainYuv(AVPixelFormat format, bool& full_range) {
  switch (format) {
    case AV_PIX_FMT_YUVJ420P:
      full_range = true;
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      full_range = true;
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      full_range = true;
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      full_range = true;
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
      full_range = true;
      return AV_PIX_FMT_YUV411P;
    default:
      return format;
  }
}

void ConvertWithScaler(const AVFrame& f, image& out, const std::string& name) {
  bool full_range = f.color_range == AVCOL_RANGE_JPEG;
  const AVPixelFormat source = PlainYuv(AVPixelFormat(f.format), full_range);
  // Only YUV pictures and the exact 8-bit shuffles come here. Same size, so
  // the scaler only converts; without accurate rounding it takes its fast
  // YUV path (JPEG 1080p: 6 ms instead of 14), at most one level apart.
  const int flags = SWS_POINT;
  av::ScalePtr scaler(sws_getContext(f.width, f.height, source, f.width, f.height, AV_PIX_FMT_BGRA,
                                     flags, nullptr, nullptr, nullptr));
  if (!scaler) throw io_error(kConversionFailure, name);
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(source);
  if (desc && !(desc->flags & AV_PIX_FMT_FLAG_RGB) && desc->nb_components >= 3) {
    const int* matrix =
        sws_getCoefficients(f.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT);
    sws_setColorspaceDetails(scaler.get(), matrix, full_range ? 1 : 0, matrix, 1, 0, 1 << 16,
                             1 << 16);
  }
  // Rows go out through the image's own order: a bottom-up image is
  // addressed from its top row with a negative stride.
  uint8_t* dst[4] = {out.rows[0], nullptr, nullptr, nullptr};
  const int step = out.top_down ? int(out.stride) : -int(out.stride);
  const int dst_stride[4] = {step, 0, 0, 0};
  const int done = sws_scale(scaler.get(), f.data, f.linesize, 0, f.height, dst, dst_stride);
  if (done != f.height) throw io_error(kConversionFailure, name);
}

// The packed 8-bit layouts that libswscale merely reorders. Everything else
// in RGB or grey goes through ConvertComponents: the scaler takes deeper
// and odd layouts through an internal YUV stage and returns 16-bit and
// float values one level off.
bool ScalerIsExact(AVPixelFormat format) {
  switch (format) {
    case AV_PIX_FMT_RGB24:
    case AV_PIX_FMT_BGR24:
    case AV_PIX_FMT_RGBA:
    case AV_PIX_FMT_BGRA:
    case AV_PIX_FMT_ARGB:
    case AV_PIX_FMT_ABGR:
    case AV_PIX_FMT_RGB0:
    case AV_PIX_FMT_BGR0:
    case AV_PIX_FMT_0RGB:
    case AV_PIX_FMT_0BGR:
      return true;
    default:
      return false;
  }
}

bool IsRgbOrGrey(const AVPixFmtDescriptor& d) {
  if (d.flags & (AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BAYER))
    return false;
  if (d.flags & AV_PIX_FMT_FLAG_RGB) return d.nb_components >= 3;
  return d.nb_components <= 2 && d.log2_chroma_w == 0 && d.log2_chroma_h == 0;
}

// Each component read at its own depth and rounded to 8 bits: integer
// levels v of depth d become (v * 255 + (2^d - 1) / 2) / (2^d - 1); float
// values are clamped to 0..1 and rounded. Components come in the
// descriptor's order: red, green, blue, alpha, or grey and alpha.
void ConvertComponents(const AVFrame& f, const AVPixFmtDescriptor& d, image& out) {
  const bool rgb = (d.flags & AV_PIX_FMT_FLAG_RGB) != 0;
  const bool is_float = (d.flags & AV_PIX_FMT_FLAG_FLOAT) != 0;
  const int colours = rgb ? 3 : 1;
  const bool alpha = (d.flags & AV_PIX_FMT_FLAG_ALPHA) != 0 && d.nb_components == colours + 1;
  const bool invert = AVPixelFormat(f.format) == AV_PIX_FMT_MONOWHITE;  // 0 is white

  // Integer depths are mapped by table (at most 65536 levels).
  std::vector<std::vector<uint8_t>> level(size_t(d.nb_components));
  for (int c = 0; c < d.nb_components && !is_float; ++c) {
    const int depth = std::min(int(d.comp[c].depth), 16);
    const uint32_t top = (1u << depth) - 1;
    level[size_t(c)].resize(size_t(top) + 1);
    for (uint32_t v = 0; v <= top; ++v)
      level[size_t(c)][v] = uint8_t((uint64_t(invert ? top - v : v) * 255 + top / 2) / top);
  }
  auto narrow = [&](int c, uint32_t v) -> uint8_t {
    if (!is_float) return level[size_t(c)][std::min<size_t>(v, level[size_t(c)].size() - 1)];
    float x;
    std::memcpy(&x, &v, sizeof x);
    if (!(x > 0.0f)) return 0;  // also NaN
    if (x >= 1.0f) return 255;
    return uint8_t(x * 255.0f + 0.5f);
  };

  std::vector<uint32_t> line(size_t(f.width) * size_t(d.nb_components));
  const uint8_t* planes[4] = {f.data[0], f.data[1], f.data[2], f.data[3]};
  for (int y = 0; y < f.height; ++y) {
    for (int c = 0; c < d.nb_components; ++c)
      av_read_image_line2(line.data() + size_t(c) * size_t(f.width), planes, f.linesize, &d, 0, y,
                          c, f.width, 0, 4);
    uint8_t* dst = out.rows[size_t(y)];
    const uint32_t* comp0 = line.data();
    for (int x = 0; x < f.width; ++x) {
      const auto at = [&](int c) { return comp0[size_t(c) * size_t(f.width) + size_t(x)]; };
      if (rgb) {
        dst[4 * x + 0] = narrow(2, at(2));
        dst[4 * x + 1] = narrow(1, at(1));
        dst[4 * x + 2] = narrow(0, at(0));
      } else {
        dst[4 * x + 0] = dst[4 * x + 1] = dst[4 * x + 2] = narrow(0, at(0));
      }
      dst[4 * x + 3] = alpha ? narrow(colours, at(colours)) : 255;
    }
  }
}

bool AnyTransparent(const image& picture) {
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint8_t* row = picture.rows[y];
    for (uint32_t x = 0; x < picture.width; ++x)
      if (row[x * 4 + 3] != 255) return true;
  }
  return false;
}

FileBytes CopyBytes(const uint8_t* data, size_t size, const std::string& name) {
  if (size > size_t(INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE)) throw io_error(kTooLarge, name);
  FileBytes bytes;
  bytes.size = size;
  bytes.buffer.reset(av_buffer_alloc(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!bytes.buffer) throw io_error(kReadFailure, name);
  if (size) std::memcpy(bytes.buffer->data, data, size);
  std::memset(bytes.buffer->data + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
  return bytes;
}

// Converts a decoded picture into `out`; returns whether it has alpha.
bool ConvertFrame(const av::FramePtr& frame, AVCodecID id, const std::string& name, image& out) {
  const uint32_t width = uint32_t(frame->width);
  const uint32_t height = uint32_t(frame->height);
  try {
    out.resize(width, height, 4);
  } catch (const image_too_large&) {
    throw io_error(kTooLarge, name);
  } catch (const std::bad_alloc&) {
    throw io_error(kTooLarge, name);
  }

  const auto format = AVPixelFormat(frame->format);
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
  if (!desc) throw io_error(kConversionFailure, name);
  if (format == AV_PIX_FMT_PAL8) return ConvertPalette(*frame, out);
  if (IsRgbOrGrey(*desc) && !ScalerIsExact(format))
    ConvertComponents(*frame, *desc, out);
  else
    ConvertWithScaler(*frame, out, name);
  // The GIF decoder always hands out 32-bit pixels with alpha, so its
  // format says nothing; the pixels do.
  if (id == AV_CODEC_ID_GIF) return AnyTransparent(out);
  return (desc->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

// 1-bit pictures: the rows as they are, white set.
void CopyBits(const AVFrame& f, bitmap<bit1>& bits) {
  bits = bitmap<bit1>(uint32_t(f.width), uint32_t(f.height), 4);
  const size_t row = (size_t(f.width) + 7) / 8;
  const uint8_t flip = f.format == AV_PIX_FMT_MONOWHITE ? 0xFF : 0x00;
  const uint8_t last = uint8_t(0xFF << ((8 - f.width % 8) % 8));
  for (int y = 0; y < f.height; ++y) {
    const uint8_t* src = f.data[0] + ptrdiff_t(y) * f.linesize[0];
    uint8_t* dst = bits.rows[size_t(y)];
    std::memset(dst, 0, bits.stride);
    for (size_t i = 0; i < row; ++i) dst[i] = src[i] ^ flip;
    dst[row - 1] &= last;
  }
}

// Decodes `file` into `out`; returns whether it has alpha. With
// `recognised`, content of no known format answers false there instead of
// throwing, so that info() can say no.
bool DecodePicture(
    FileBytes file, const std::string& name, image& out, uint64_t max_pixels, bool* recognised) {
  av::quiet_library_log();
  const AVCodecID id = CodecOfContent(file);
  if (recognised) *recognised = id != AV_CODEC_ID_NONE;
  if (id == AV_CODEC_ID_NONE) {
    if (recognised) return false;
    throw io_error(kUnknownContent, name);
  }
  if (id == AV_CODEC_ID_BMP) CheckBmpClaim(file, name);
  if (cut_short(file.buffer->data, file.size)) throw io_error(kDecodeFailure, name);

  const av::FramePtr frame = DecodeFirstPicture(id, std::move(file), max_pixels, name);
  return ConvertFrame(frame, id, name, out);
}

}  // namespace

library_reader::library_reader(uint64_t max_pixels)
    : max_pixels_(std::min(max_pixels, kLargestImage)) {}

void library_reader::extensions(std::vector<std::string>& out) const {
  out = kExtensions;
}

std::string library_reader::filter() const {
  return make_filter(kExtensions);
}

bool library_reader::info(const std::string& name, const std::string& format, file_info* info) {
  if (!KnownWord(format)) return false;
  return this->info(name, info);
}

bool library_reader::info(const std::string& name, file_info* info) {
  FileBytes file = ReadWholeFile(name);
  uint32_t width = 0, height = 0;
  bool alpha = false;
  // A PNG or JPEG says what it is in its header. Decoding instead would let
  // a small file that declares a huge, highly compressible picture take
  // minutes and gigabytes for a question that needs microseconds.
  if (const auto declared = read_declared(file.buffer->data, file.size)) {
    width = declared->width;
    height = declared->height;
    alpha = declared->alpha;
  } else {
    image picture;
    bool recognised = false;
    alpha = DecodePicture(std::move(file), name, picture, max_pixels_, &recognised);
    if (!recognised) return false;
    width = picture.width;
    height = picture.height;
  }
  if (info) {
    info->name = name;
    info->format = "???";
    info->width = width;
    info->height = height;
    info->bit_count = alpha ? 32 : 24;
    info->uncompressed = false;
  }
  return true;
}

void library_reader::read(const std::string& name, const std::string& format, image& out) {
  if (!KnownWord(format)) throw io_error(kUnknownWord, name);
  read(name, out, nullptr);
}

void library_reader::read(const std::string& name, image& out) {
  read(name, out, nullptr);
}

void library_reader::read(const std::string& name, image& out, bool* has_alpha) {
  const bool alpha = DecodePicture(ReadWholeFile(name), name, out, max_pixels_, nullptr);
  if (has_alpha) *has_alpha = alpha;
}

void library_reader::read_bytes(
    const uint8_t* data, size_t size, const std::string& name, image& out, bool* has_alpha) {
  const bool alpha = DecodePicture(CopyBytes(data, size, name), name, out, max_pixels_, nullptr);
  if (has_alpha) *has_alpha = alpha;
}

bool library_reader::read_bytes_bilevel(
    const uint8_t* data, size_t size, const std::string& name, bitmap<bit1>& bits, image& out) {
  av::quiet_library_log();
  FileBytes file = CopyBytes(data, size, name);
  const AVCodecID id = CodecOfContent(file);
  if (id == AV_CODEC_ID_NONE) throw io_error(kUnknownContent, name);
  if (id == AV_CODEC_ID_BMP) CheckBmpClaim(file, name);
  if (cut_short(file.buffer->data, file.size)) throw io_error(kDecodeFailure, name);
  const av::FramePtr frame = DecodeFirstPicture(id, std::move(file), max_pixels_, name);
  if (frame->format == AV_PIX_FMT_MONOBLACK || frame->format == AV_PIX_FMT_MONOWHITE) {
    CopyBits(*frame, bits);
    return true;
  }
  ConvertFrame(frame, id, name, out);
  return false;
}

}  // namespace img
