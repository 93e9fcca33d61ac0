// SPDX-License-Identifier: GPL-3.0-or-later
#include "imaging/avi_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "imaging/av_support.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace img::avi {

namespace {

const AVOutputFormat* AviFormat() {
  return av_guess_format("avi", nullptr, nullptr);
}

bool HasAlpha(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  return d && (d->flags & AV_PIX_FMT_FLAG_ALPHA);
}

bool Usable(AVPixelFormat format) {
  const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
  if (!d || (d->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM))) return false;
  return format == AV_PIX_FMT_BGRA || sws_isSupportedOutput(format) > 0;
}

// Where blue, green, red and alpha go in the coder's own layout: byte
// offsets within a packed pixel, or plane numbers of a planar one (-1: no
// alpha). Formats not here go through swscale, which is exact for the
// packed shuffles but not for alpha into planes.
struct Layout {
  AVPixelFormat format;
  bool planar;
  int bytes;  // of a packed pixel
  int b, g, r, a;
};

constexpr Layout kLayouts[] = {
    {AV_PIX_FMT_BGRA, false, 4, 0, 1, 2, 3},   {AV_PIX_FMT_RGBA, false, 4, 2, 1, 0, 3},
    {AV_PIX_FMT_ARGB, false, 4, 3, 2, 1, 0},   {AV_PIX_FMT_ABGR, false, 4, 1, 2, 3, 0},
    {AV_PIX_FMT_BGR24, false, 3, 0, 1, 2, -1}, {AV_PIX_FMT_RGB24, false, 3, 2, 1, 0, -1},
    {AV_PIX_FMT_BGR0, false, 4, 0, 1, 2, -1},  {AV_PIX_FMT_RGB0, false, 4, 2, 1, 0, -1},
    {AV_PIX_FMT_GBRAP, true, 1, 1, 0, 2, 3},   {AV_PIX_FMT_GBRP, true, 1, 1, 0, 2, -1},
};

const Layout* LayoutOf(AVPixelFormat format) {
  for (const Layout& l : kLayouts)
    if (l.format == format) return &l;
  return nullptr;
}

template <bool Planar, bool Alpha>
void Shuffle(const image& picture, AVFrame& f, const Layout& l) {
  for (uint32_t y = 0; y < picture.height; ++y) {
    const uint8_t* src = picture.rows[y];
    if constexpr (Planar) {
      uint8_t* b = f.data[l.b] + ptrdiff_t(y) * f.linesize[l.b];
      uint8_t* g = f.data[l.g] + ptrdiff_t(y) * f.linesize[l.g];
      uint8_t* r = f.data[l.r] + ptrdiff_t(y) * f.linesize[l.r];
      uint8_t* a = Alpha ? f.data[l.a] + ptrdiff_t(y) * f.linesize[l.a] : nullptr;
      for (uint32_t x = 0; x < picture.width; ++x, src += 4) {
        b[x] = src[0], g[x] = src[1], r[x] = src[2];
        if constexpr (Alpha) a[x] = src[3];
      }
    } else {
      uint8_t* dst = f.data[0] + ptrdiff_t(y) * f.linesize[0];
      for (uint32_t x = 0; x < picture.width; ++x, src += 4, dst += l.bytes) {
        dst[l.b] = src[0], dst[l.g] = src[1], dst[l.r] = src[2];
        if constexpr (Alpha)
          dst[l.a] = src[3];
        else if (l.bytes == 4)
          dst[3] = 0;  // the padding byte of BGR0 and RGB0
      }
    }
  }
}

using ShuffleFn = void (*)(const image&, AVFrame&, const Layout&);

ShuffleFn PickShuffle(const Layout& l) {
  if (l.planar) return l.a >= 0 ? Shuffle<true, true> : Shuffle<true, false>;
  return l.a >= 0 ? Shuffle<false, true> : Shuffle<false, false>;
}

// The encoder's input format for pictures with or without alpha:
// AV_PIX_FMT_NONE when it has none of that kind. BGRA and BGR24 themselves
// come first, since they need no conversion; otherwise the library's own
// pick of the least lossy format.
AVPixelFormat InputFormat(const AVCodec& codec, bool alpha) {
  const AVPixelFormat own = alpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24;
  if (!codec.pix_fmts) return own;  // takes any layout (raw video)
  std::vector<AVPixelFormat> kind;
  for (const AVPixelFormat* f = codec.pix_fmts; *f != AV_PIX_FMT_NONE; ++f) {
    if (HasAlpha(*f) != alpha || !Usable(*f)) continue;
    if (*f == own) return own;
    kind.push_back(*f);
  }
  if (kind.empty()) return AV_PIX_FMT_NONE;
  kind.push_back(AV_PIX_FMT_NONE);
  int loss = 0;
  return avcodec_find_best_pix_fmt_of_list(kind.data(), own, alpha ? 1 : 0, &loss);
}

bool TakenByAvi(const AVCodec& codec) {
  return avformat_query_codec(AviFormat(), codec.id, FF_COMPLIANCE_NORMAL) == 1;
}

bool Listable(const AVCodec& codec) {
  return av_codec_is_encoder(&codec) && codec.type == AVMEDIA_TYPE_VIDEO &&
         !(codec.capabilities &
           (AV_CODEC_CAP_EXPERIMENTAL | AV_CODEC_CAP_HARDWARE | AV_CODEC_CAP_HYBRID)) &&
         TakenByAvi(codec);
}

// A context of the coder at this size and rate, ready to open.
av::CodecContextPtr MakeContext(const AVCodec& codec,
                                AVPixelFormat format,
                                uint32_t width,
                                uint32_t height,
                                uint32_t rate,
                                uint32_t scale) {
  av::CodecContextPtr c(avcodec_alloc_context3(&codec));
  if (!c) throw exception(kOpenCoderError, "out of memory");
  c->width = int(width);
  c->height = int(height);
  c->pix_fmt = format;
  c->time_base = AVRational{int(scale), int(rate)};
  c->framerate = AVRational{int(rate), int(scale)};
  c->sample_aspect_ratio = AVRational{1, 1};
  // One thread: a coder's output must not depend on the machine. The render
  // already keeps the second core busy compositing the next frame.
  c->thread_count = 1;
  return c;
}

struct DictFree {
  void operator()(AVDictionary* d) const { av_dict_free(&d); }
};

// `state` as the coder's options; kOpenCoderError when it does not parse.
AVDictionary* ParseState(const std::string& state) {
  AVDictionary* options = nullptr;
  if (!state.empty() && av_dict_parse_string(&options, state.c_str(), "=", ":", 0) < 0) {
    av_dict_free(&options);
    throw exception(kOpenCoderError, "cannot read the coder options \"" + state + "\"");
  }
  return options;
}

// Opens the context with the options of `state`; an option the coder does
// not know is refused, so that a mistyped state never passes unnoticed.
void Open(AVCodecContext& c, const AVCodec& codec, const std::string& state, const char* text) {
  AVDictionary* options = ParseState(state);
  const int result = avcodec_open2(&c, &codec, &options);
  std::unique_ptr<AVDictionary, DictFree> left(options);
  if (result < 0) throw exception(text, av::error_text(result));
  if (const AVDictionaryEntry* e = av_dict_get(left.get(), "", nullptr, AV_DICT_IGNORE_SUFFIX))
    throw exception(kOpenCoderError, std::string("the coder has no option \"") + e->key + "\"");
}

AviCoderInfo Describe(const AVCodec& codec) {
  AviCoderInfo info;
  info.handler = codec.name;
  info.name = codec.name;
  info.description = codec.long_name ? codec.long_name : codec.name;
  const AVCodecDescriptor* d = avcodec_descriptor_get(codec.id);
  const int props = d ? d->props : 0;
  info.has_quality = (props & AV_CODEC_PROP_LOSSY) != 0;
  info.is_temporal = !(props & AV_CODEC_PROP_INTRA_ONLY);
  info.has_crunch = info.has_quality;
  info.has_configure = codec.priv_class != nullptr;
  info.accepts_32 = InputFormat(codec, true) != AV_PIX_FMT_NONE;
  info.accepts_24 = InputFormat(codec, false) != AV_PIX_FMT_NONE;
  return info;
}

const AVCodec* FindEncoder(const std::string& handler) {
  const AVCodec* codec = avcodec_find_encoder_by_name(handler.c_str());
  if (!codec || !Listable(*codec)) return nullptr;
  return codec;
}

}  // namespace

void list_coders(std::vector<AviCoderInfo>& out, uint32_t width, uint32_t height) {
  av::quiet_library_log();
  out.clear();
  void* at = nullptr;
  while (const AVCodec* codec = av_codec_iterate(&at)) {
    if (!Listable(*codec)) continue;
    AviCoderInfo info = Describe(*codec);
    if (!info.accepts_32 && !info.accepts_24) continue;
    // A coder that cannot take the size (a block-based one, an odd size) is
    // still listed; the writer reports it when it opens the coder.
    (void)width, (void)height;
    out.push_back(std::move(info));
  }
}

AviCoderInfo find_coder(const std::string& handler) {
  av::quiet_library_log();
  const AVCodec* codec = FindEncoder(handler);
  if (!codec) throw exception(kOpenCoderError, "this build has no AVI coder \"" + handler + "\"");
  return Describe(*codec);
}

void check_state(const AviCoderInfo& coder, const std::string& state) {
  av::quiet_library_log();
  const AVCodec* codec = FindEncoder(coder.handler);
  if (!codec)
    throw exception(kOpenCoderError, "this build has no AVI coder \"" + coder.handler + "\"");
  const AVPixelFormat format = InputFormat(*codec, !coder.accepts_24);
  av::CodecContextPtr c = MakeContext(*codec, format, 720, 576, 25, 1);
  Open(*c, *codec, state, kOpenCoderError);
}

struct FormatContextFree {
  void operator()(AVFormatContext* f) const {
    if (f->pb) avio_closep(&f->pb);
    avformat_free_context(f);
  }
};

struct writer::state {
  std::string file;
  std::string temporary;
  settings options;
  AVPixelFormat format = AV_PIX_FMT_NONE;
  av::CodecContextPtr coder;
  std::unique_ptr<AVFormatContext, FormatContextFree> container;
  AVStream* stream = nullptr;
  av::FramePtr frame;
  av::PacketPtr packet;
  av::ScalePtr scaler;  // for formats without a layout of ours
  const Layout* layout = nullptr;
  ShuffleFn shuffle = nullptr;
  int64_t count = 0;
  bool closed = false;

  // Moves every packet the coder has ready into the file.
  void drain() {
    for (;;) {
      const int r = avcodec_receive_packet(coder.get(), packet.get());
      if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
      if (r < 0) throw exception(kCompressError, av::error_text(r));
      av_packet_rescale_ts(packet.get(), coder->time_base, stream->time_base);
      packet->stream_index = stream->index;
      const int w = av_interleaved_write_frame(container.get(), packet.get());
      if (w < 0) throw exception(kWriteError, av::error_text(w));
    }
  }

  void remove_temporary() {
    container.reset();
    std::remove(temporary.c_str());
  }
};

writer::writer(const AviCoderInfo& coder,
               const std::string& codec_state,
               const std::string& file,
               const settings& options)
    : s_(std::make_unique<state>()) {
  av::quiet_library_log();
  const AVCodec* codec = FindEncoder(coder.handler);
  if (!codec)
    throw exception(kOpenCoderError, "this build has no AVI coder \"" + coder.handler + "\"");
  if (options.width == 0 || options.height == 0 || options.width > 16384 ||
      options.height > 16384 || options.rate == 0 || options.scale == 0)
    throw exception(kBeginError, "frame size or rate out of range");
  s_->file = file;
  s_->temporary = file + ".partial";
  s_->options = options;
  // Without alpha only when the coder can do without, and never with alpha
  // that the coder cannot take: a render goes on at the depth it has.
  const bool takes_32 = InputFormat(*codec, true) != AV_PIX_FMT_NONE;
  const bool takes_24 = InputFormat(*codec, false) != AV_PIX_FMT_NONE;
  if (!takes_32) s_->options.with_alpha = false;
  if (!takes_24) s_->options.with_alpha = true;
  s_->format = InputFormat(*codec, s_->options.with_alpha);

  s_->coder =
      MakeContext(*codec, s_->format, options.width, options.height, options.rate, options.scale);
  AVFormatContext* container = nullptr;
  if (avformat_alloc_output_context2(&container, AviFormat(), nullptr, s_->temporary.c_str()) < 0)
    throw exception(kFileOpenError, "out of memory");
  s_->container.reset(container);
  if (container->oformat->flags & AVFMT_GLOBALHEADER)
    s_->coder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  Open(*s_->coder, *codec, codec_state, kBeginError);

  s_->frame.reset(av_frame_alloc());
  s_->packet.reset(av_packet_alloc());
  if (!s_->frame || !s_->packet) throw exception(kBeginError, "out of memory");
  s_->frame->format = s_->format;
  s_->frame->width = int(options.width);
  s_->frame->height = int(options.height);
  if (av_frame_get_buffer(s_->frame.get(), 0) < 0) throw exception(kBeginError, "out of memory");
  s_->layout = LayoutOf(s_->format);
  if (s_->layout) {
    s_->shuffle = PickShuffle(*s_->layout);
  } else {
    const int w = int(options.width), h = int(options.height);
    s_->scaler.reset(sws_getContext(w, h, AV_PIX_FMT_BGRA, w, h, s_->format,
                                    SWS_POINT | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr,
                                    nullptr));
    if (!s_->scaler) throw exception(kBeginError, "no conversion to the coder's pixel format");
  }

  const int opened = avio_open(&container->pb, s_->temporary.c_str(), AVIO_FLAG_WRITE);
  if (opened < 0) throw exception(kFileOpenError, av::error_text(opened) + ": " + file);
  try {
    s_->stream = avformat_new_stream(container, nullptr);
    if (!s_->stream) throw exception(kStreamCreateError, "out of memory");
    s_->stream->time_base = s_->coder->time_base;
    s_->stream->avg_frame_rate = s_->coder->framerate;
    if (avcodec_parameters_from_context(s_->stream->codecpar, s_->coder.get()) < 0)
      throw exception(kStreamCreateError, "out of memory");
    const int header = avformat_write_header(container, nullptr);
    if (header < 0) throw exception(kSetFormatError, av::error_text(header));
  } catch (...) {
    s_->remove_temporary();
    throw;
  }
}

writer::~writer() {
  if (s_->closed) return;
  try {
    close();
  } catch (const std::exception&) {
    // close() has removed the unfinished file; a destructor reports nothing.
  }
}

bool writer::with_alpha() const {
  return s_->options.with_alpha;
}

int64_t writer::frames_written() const {
  return s_->count;
}

void writer::write(const image& picture) {
  if (s_->closed) throw exception(kWriteError, "the file is closed");
  if (picture.width != s_->options.width || picture.height != s_->options.height)
    throw exception(kCompressError, "frame of " + std::to_string(picture.width) + " x " +
                                        std::to_string(picture.height) + " in a stream of " +
                                        std::to_string(s_->options.width) + " x " +
                                        std::to_string(s_->options.height));
  AVFrame& f = *s_->frame;
  // The coder may still hold the previous picture's buffer.
  if (av_frame_make_writable(&f) < 0) throw exception(kCompressError, "out of memory");
  const int h = int(picture.height);
  if (s_->format == AV_PIX_FMT_BGRA) {
    const size_t row = size_t(picture.width) * 4;
    for (int y = 0; y < h; ++y)
      std::memcpy(f.data[0] + ptrdiff_t(y) * f.linesize[0], picture.rows[y], row);
  } else if (s_->shuffle) {
    s_->shuffle(picture, f, *s_->layout);
  } else {
    const uint8_t* src[4] = {picture.rows[0], nullptr, nullptr, nullptr};
    const int step = picture.top_down ? int(picture.stride) : -int(picture.stride);
    const int src_stride[4] = {step, 0, 0, 0};
    if (sws_scale(s_->scaler.get(), src, src_stride, 0, h, f.data, f.linesize) != h)
      throw exception(kCompressError, "pixel conversion failed");
  }
  f.pts = s_->count;
  const int sent = avcodec_send_frame(s_->coder.get(), &f);
  if (sent < 0) throw exception(kCompressError, av::error_text(sent));
  s_->drain();
  ++s_->count;
}

void writer::close() {
  if (s_->closed) return;
  s_->closed = true;
  try {
    const int flushed = avcodec_send_frame(s_->coder.get(), nullptr);
    if (flushed < 0 && flushed != AVERROR_EOF)
      throw exception(kCompressError, av::error_text(flushed));
    s_->drain();
    const int trailer = av_write_trailer(s_->container.get());
    if (trailer < 0) throw exception(kWriteError, av::error_text(trailer));
    const int closed = avio_closep(&s_->container->pb);
    if (closed < 0) throw exception(kWriteError, av::error_text(closed));
    s_->container.reset();
    if (std::rename(s_->temporary.c_str(), s_->file.c_str()) != 0)
      throw exception(kWriteError, std::string(std::strerror(errno)) + ": " + s_->file);
  } catch (...) {
    // What could not be finished is no AVI: nothing stays under any name.
    s_->remove_temporary();
    throw;
  }
}

}  // namespace img::avi
