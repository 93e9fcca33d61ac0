// SPDX-License-Identifier: GPL-3.0-or-later
// Reading an uncompressed 32-bit 1920x1080 frame from the page cache: our
// own BMP and TGA reader against FFmpeg decoding the same file (demuxer
// plus image decoder, as a library-backed reader would run it).
//
//   velomar_bench --benchmark_filter=Read
//
// bytes_per_second is the file's size over the time of one whole read.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

#include "imaging/native_io.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

namespace {

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;

// The two test frames, written once into a private folder and removed at exit.
class Frames {
 public:
  Frames() {
    folder_ = std::filesystem::temp_directory_path() /
              ("velomar-bench-" + std::to_string(std::rand()) + "-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
    img::image picture(kWidth, kHeight, 4);
    for (uint32_t y = 0; y < kHeight; ++y)
      for (uint32_t i = 0; i < kWidth * 4; ++i) picture.rows[y][i] = uint8_t(i * 7 + y * 3);
    img::native_writer writer;
    writer.write(bmp(), "BMP", picture, true);
    writer.write(tga(), "TGA", picture, true);
    av_log_set_level(AV_LOG_ERROR);
  }
  ~Frames() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  std::string bmp() const { return (folder_ / "frame.bmp").string(); }
  std::string tga() const { return (folder_ / "frame.tga").string(); }
  std::string get(bool is_bmp) const { return is_bmp ? bmp() : tga(); }

 private:
  std::filesystem::path folder_;
};

const Frames& TestFrames() {
  static const Frames frames;
  return frames;
}

// A fresh image per read, as the frame cache allocates one per entry.
void BM_NativeRead(benchmark::State& state, bool is_bmp) {
  const std::string name = TestFrames().get(is_bmp);
  img::native_reader reader;
  for (auto _ : state) {
    img::image picture;
    reader.read(name, picture);
    benchmark::DoNotOptimize(picture.data);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(name)));
}

// The same image every time: the stream read alone, without page faults on a new buffer.
void BM_NativeReadReused(benchmark::State& state, bool is_bmp) {
  const std::string name = TestFrames().get(is_bmp);
  img::native_reader reader;
  img::image picture;
  for (auto _ : state) {
    reader.read(name, picture);
    benchmark::DoNotOptimize(picture.data);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(name)));
}

// Open, find the decoder from the demuxer's parameters, decode one frame.
bool FfmpegDecodeOnce(const std::string& name) {
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, name.c_str(), nullptr, nullptr) < 0) return false;
  bool ok = false;
  const AVCodecParameters* parameters = format->streams[0]->codecpar;
  const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
  AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
  AVPacket* packet = av_packet_alloc();
  AVFrame* frame = av_frame_alloc();
  if (context && packet && frame && avcodec_parameters_to_context(context, parameters) >= 0 &&
      avcodec_open2(context, codec, nullptr) >= 0 && av_read_frame(format, packet) >= 0 &&
      avcodec_send_packet(context, packet) >= 0 && avcodec_receive_frame(context, frame) >= 0) {
    ok = frame->width == int(kWidth) && frame->height == int(kHeight);
  }
  av_frame_free(&frame);
  av_packet_free(&packet);
  avcodec_free_context(&context);
  avformat_close_input(&format);
  return ok;
}

void BM_FfmpegDecode(benchmark::State& state, bool is_bmp) {
  const std::string name = TestFrames().get(is_bmp);
  if (!FfmpegDecodeOnce(name)) {
    state.SkipWithError("FFmpeg cannot decode the test frame");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(FfmpegDecodeOnce(name));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(std::filesystem::file_size(name)));
}

BENCHMARK_CAPTURE(BM_NativeRead, Bmp1080p32, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NativeRead, Tga1080p32, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NativeReadReused, Bmp1080p32, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_NativeReadReused, Tga1080p32, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_FfmpegDecode, Bmp1080p32, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_FfmpegDecode, Tga1080p32, false)->Unit(benchmark::kMillisecond);

}  // namespace
