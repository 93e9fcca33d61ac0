// SPDX-License-Identifier: GPL-3.0-or-later
// The open trackers on the shot of scripts/bench.sh, timed in the same run
// as our tracker, for the ratios of the end-to-end comparison:
//   ECC: findTransformECC (affine) frame to frame on a 3-level pyramid,
//        chained from the key frame outwards;
//   KLT: corners inside the mask on the key frame, pyramidal Lucas-Kanade
//        frame to frame, estimateAffine2D from the key frame's corners.
// Each decodes the PNG frames itself, as our command does. Errors are the
// corners of the mask's bounding box against the shot's true motion.
//
//   velomar_peer_bench SHOT KEY FRAMES OUR_TRANSFORMS OUR_SECONDS OUR_CPU_SECONDS
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace {

using Clock = std::chrono::steady_clock;

// Processor time of the whole process, every thread, user and system.
double ProcessorSeconds() {
  rusage r{};
  getrusage(RUSAGE_SELF, &r);
  return double(r.ru_utime.tv_sec + r.ru_stime.tv_sec) +
         1e-6 * double(r.ru_utime.tv_usec + r.ru_stime.tv_usec);
}
// xx xy yx yy x y: key-frame coordinates to the frame's.
using Affine = std::array<double, 6>;

struct Shot {
  std::string dir;
  int key = 0, frames = 0;
  std::vector<Affine> truth;
  cv::Mat mask;  // 8-bit, the key frame's
  cv::Rect box;

  std::string frame(int f) const {
    char name[32];
    std::snprintf(name, sizeof name, "/shot_%04d.png", f);
    return dir + name;
  }
};

Affine FromMat(const cv::Mat& m) {  // 2x3, double
  return {m.at<double>(0, 0), m.at<double>(0, 1), m.at<double>(1, 0),
          m.at<double>(1, 1), m.at<double>(0, 2), m.at<double>(1, 2)};
}

cv::Mat ToMat(const Affine& a) {
  return (cv::Mat_<double>(2, 3) << a[0], a[1], a[4], a[2], a[3], a[5]);
}

// a after b.
Affine Compose(const Affine& a, const Affine& b) {
  return {a[0] * b[0] + a[1] * b[2],        a[0] * b[1] + a[1] * b[3],
          a[2] * b[0] + a[3] * b[2],        a[2] * b[1] + a[3] * b[3],
          a[0] * b[4] + a[1] * b[5] + a[4], a[2] * b[4] + a[3] * b[5] + a[5]};
}

struct Errors {
  double mean = 0, worst = 0;
};

Errors CornerErrors(const Shot& shot, const std::vector<Affine>& result) {
  const double l = shot.box.x, t = shot.box.y, r = l + shot.box.width, b = t + shot.box.height;
  const double corners[4][2] = {{l, t}, {r, t}, {r, b}, {l, b}};
  Errors e;
  for (int f = 0; f < shot.frames; ++f) {
    const Affine &m = result[size_t(f)], &g = shot.truth[size_t(f)];
    for (const auto& c : corners) {
      const double dx = m[0] * c[0] + m[1] * c[1] + m[4] - (g[0] * c[0] + g[1] * c[1] + g[4]);
      const double dy = m[2] * c[0] + m[3] * c[1] + m[5] - (g[2] * c[0] + g[3] * c[1] + g[5]);
      const double d = std::hypot(dx, dy);
      e.mean += d / 4;
      e.worst = std::max(e.worst, d);
    }
  }
  e.mean /= shot.frames;
  return e;
}

cv::Mat Grey(const std::string& file) {
  const cv::Mat colour = cv::imread(file, cv::IMREAD_COLOR);
  if (colour.empty()) throw std::runtime_error("cannot read " + file);
  cv::Mat grey;
  cv::cvtColor(colour, grey, cv::COLOR_BGR2GRAY);
  return grey;
}

// One ECC step: the warp from `from` to `to` (a maps from's coordinates to
// to's), coarse to fine over 3 levels, starting at the identity.
cv::Mat EccStep(const cv::Mat& from, const cv::Mat& to, const cv::Mat& mask) {
  std::vector<cv::Mat> a{from}, b{to}, m{mask};
  for (int level = 1; level < 3; ++level) {
    cv::Mat x, y, z;
    cv::pyrDown(a.back(), x);
    cv::pyrDown(b.back(), y);
    cv::resize(m.back(), z, x.size(), 0, 0, cv::INTER_NEAREST);
    a.push_back(x);
    b.push_back(y);
    m.push_back(z);
  }
  cv::Mat warp = cv::Mat::eye(2, 3, CV_32F);
  const cv::TermCriteria stop(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 50, 1e-4);
  for (int level = 2; level >= 0; --level) {
    try {
      cv::findTransformECC(a[size_t(level)], b[size_t(level)], warp, cv::MOTION_AFFINE, stop,
                           m[size_t(level)], 5);
    } catch (const cv::Exception&) {
      // Did not converge at this level: keep the warp it had.
    }
    if (level > 0) {
      warp.at<float>(0, 2) *= 2;
      warp.at<float>(1, 2) *= 2;
    }
  }
  cv::Mat out;
  warp.convertTo(out, CV_64F);
  return out;
}

std::vector<Affine> TrackEcc(const Shot& shot) {
  std::vector<Affine> result(size_t(shot.frames));
  result[size_t(shot.key)] = {1, 0, 0, 1, 0, 0};
  const cv::Mat key = Grey(shot.frame(shot.key));
  for (int step : {-1, 1}) {
    cv::Mat previous = key;
    Affine chained = {1, 0, 0, 1, 0, 0};
    for (int f = shot.key + step; f >= 0 && f < shot.frames; f += step) {
      const cv::Mat next = Grey(shot.frame(f));
      // The mask carried into the previous frame.
      cv::Mat mask;
      cv::warpAffine(shot.mask, mask, ToMat(chained), shot.mask.size(), cv::INTER_NEAREST);
      chained = Compose(FromMat(EccStep(previous, next, mask)), chained);
      result[size_t(f)] = chained;
      previous = next;
    }
  }
  return result;
}

std::vector<Affine> TrackKlt(const Shot& shot) {
  std::vector<Affine> result(size_t(shot.frames));
  result[size_t(shot.key)] = {1, 0, 0, 1, 0, 0};
  const cv::Mat key = Grey(shot.frame(shot.key));
  std::vector<cv::Point2f> corners;
  cv::goodFeaturesToTrack(key, corners, 500, 0.01, 7, shot.mask);
  for (int step : {-1, 1}) {
    cv::Mat previous = key;
    std::vector<cv::Point2f> from = corners, at = corners;
    Affine last = {1, 0, 0, 1, 0, 0};
    for (int f = shot.key + step; f >= 0 && f < shot.frames; f += step) {
      const cv::Mat next = Grey(shot.frame(f));
      std::vector<cv::Point2f> moved;
      std::vector<uchar> found;
      std::vector<float> error;
      cv::calcOpticalFlowPyrLK(previous, next, at, moved, found, error, cv::Size(21, 21), 3);
      std::vector<cv::Point2f> kept_from, kept_at;
      for (size_t i = 0; i < moved.size(); ++i)
        if (found[i]) {
          kept_from.push_back(from[i]);
          kept_at.push_back(moved[i]);
        }
      from.swap(kept_from);
      at.swap(kept_at);
      if (from.size() >= 3) {
        const cv::Mat m = cv::estimateAffine2D(from, at);
        if (!m.empty()) last = FromMat(m);
      }
      result[size_t(f)] = last;
      previous = next;
    }
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 7) {
    std::fprintf(stderr,
                 "usage: velomar_peer_bench SHOT KEY FRAMES OUR_TRANSFORMS OUR_SECONDS "
                 "OUR_CPU_SECONDS\n");
    return 2;
  }
  try {
    Shot shot;
    shot.dir = argv[1];
    shot.key = std::stoi(argv[2]);
    shot.frames = std::stoi(argv[3]);
    std::ifstream truth(shot.dir + "/truth.txt");
    for (Affine a; truth >> a[0] >> a[1] >> a[2] >> a[3] >> a[4] >> a[5];) shot.truth.push_back(a);
    if (int(shot.truth.size()) != shot.frames) throw std::runtime_error("truth.txt is short");
    char mask_name[32];
    std::snprintf(mask_name, sizeof mask_name, "/mask_%04d.bmp", shot.key);
    shot.mask = cv::imread(shot.dir + mask_name, cv::IMREAD_GRAYSCALE);
    if (shot.mask.empty()) throw std::runtime_error("cannot read the mask");
    shot.box = cv::boundingRect(shot.mask);

    std::vector<Affine> ours(size_t(shot.frames));
    std::ifstream ours_file(argv[4]);
    for (std::string line; std::getline(ours_file, line);) {
      std::istringstream in(line);
      int f;
      Affine a;
      if (in >> f >> a[0] >> a[1] >> a[2] >> a[3] >> a[4] >> a[5] && f >= 0 && f < shot.frames)
        ours[size_t(f)] = a;
    }
    const double our_seconds = std::stod(argv[5]), our_cpu = std::stod(argv[6]);

    struct Row {
      const char* name;
      double seconds, cpu;
      Errors errors;
    };
    std::vector<Row> rows{{"velomar-cli track", our_seconds, our_cpu, CornerErrors(shot, ours)}};
    for (const auto& [name, track] : {std::pair{"OpenCV ECC, 3 levels", &TrackEcc},
                                      std::pair{"OpenCV KLT + affine", &TrackKlt}}) {
      const auto start = Clock::now();
      const double cpu_start = ProcessorSeconds();
      const std::vector<Affine> result = track(shot);
      const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
      rows.push_back({name, seconds, ProcessorSeconds() - cpu_start, CornerErrors(shot, result)});
    }
    std::printf("%d frames of %dx%d PNG, key frame %d, mask box %dx%d\n", shot.frames,
                shot.mask.cols, shot.mask.rows, shot.key, shot.box.width, shot.box.height);
    std::printf("%-22s %8s %8s %8s %9s %9s %11s %11s\n", "tracker", "wall s", "cpu s", "frames/s",
                "mean px", "worst px", "wall / ours", "cpu / ours");
    for (const Row& r : rows)
      std::printf("%-22s %8.2f %8.2f %8.2f %9.3f %9.3f %11.2f %11.2f\n", r.name, r.seconds, r.cpu,
                  shot.frames / r.seconds, r.errors.mean, r.errors.worst, r.seconds / our_seconds,
                  r.cpu / our_cpu);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "velomar_peer_bench: %s\n", e.what());
    return 1;
  }
}
