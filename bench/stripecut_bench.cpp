// The stripe cut's time per picture, beside the time to copy one frame.
//
// The node copies each 640 x 480 brightness plane once (307200 bytes) before
// it cuts it; that copy is the floor any pass over the picture is measured
// against. Every cut benchmark reports "x_copy", its CPU time in frame copies,
// and "offset64", where the code of CutStripe starts modulo 64 bytes.
//
// The cut is timed as this program links it (the stripe cut library, like the
// plug-in) and, in the *_Placed/N benchmarks, in the modules
// stripecut_placed_N (stripecut_placed.cpp), which hold the same object code
// N bytes further along a 64-byte line, as far as its alignment lets them:
// the placement must not change the speed.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/stripe_pictures.h"

namespace {

constexpr std::size_t kFrameBytes = 640 * 480;

// CPU time of the calling thread, in seconds: what the CPU column shows, and
// unlike the clock, not stretched by other processes on a busy machine.
double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// CPU seconds to copy one frame. How fast a copy runs depends on where its
// buffers lie (by up to a quarter on the measured machine), so this copies
// between five pairs of fresh buffers, takes the best of several rounds for
// each, and returns the median of the five. Measured again before each cut
// benchmark, so that both see the same machine.
double FrameCopySeconds() {
  constexpr int kPairs = 5;
  std::vector<std::vector<uint8_t>> frames;
  std::vector<cv::Mat> pictures;
  std::vector<double> seconds;
  for (int pair = 0; pair < kPairs; ++pair) {
    frames.emplace_back(kFrameBytes, 7);
    pictures.push_back(cv::Mat::zeros(480, 640, CV_8UC1));
    double best = 1e9;
    for (int round = 0; round < 5; ++round) {
      constexpr int kCopies = 100;
      const double start = ThreadSeconds();
      for (int i = 0; i < kCopies; ++i) {
        std::memcpy(pictures.back().data, frames.back().data(), kFrameBytes);
        benchmark::ClobberMemory();
      }
      best = std::min(best, (ThreadSeconds() - start) / kCopies);
    }
    seconds.push_back(best);
  }
  std::nth_element(seconds.begin(), seconds.begin() + kPairs / 2, seconds.end());
  return seconds[kPairs / 2];
}

void BM_CopyFrame(benchmark::State& state) {
  std::vector<uint8_t> frame(kFrameBytes, 7);
  cv::Mat picture = cv::Mat::zeros(480, 640, CV_8UC1);
  for (auto _ : state) {
    std::memcpy(picture.data, frame.data(), kFrameBytes);
    benchmark::DoNotOptimize(picture.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFrameBytes);
}
BENCHMARK(BM_CopyFrame);

using CutFunction = void (*)(const cv::Mat&, int, kivplugcali::StripeCut*);

// The cut in module stripecut_placed_<pad>, loaded once; null when it cannot
// be loaded.
CutFunction PlacedCut(int pad) {
  static std::map<int, CutFunction> loaded;
  const auto found = loaded.find(pad);
  if (found != loaded.end()) return found->second;
  const std::string path = std::string(LASERCALI_PLACED_MODULE_DIR) + "/libstripecut_placed_" +
                           std::to_string(pad) + ".so";
  CutFunction cut = nullptr;
  if (void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (const void* symbol = dlsym(module, "lasercali_placed_cut")) {
      cut = *static_cast<const CutFunction*>(symbol);
    }
  }
  loaded[pad] = cut;
  return cut;
}

// Cuts `picture` with `cut` over and over into one reused result, as a caller
// that keeps its StripeCut does: no allocation after the first call.
void RunCut(benchmark::State& state, const cv::Mat& picture, int expected_result,
            CutFunction cut_stripe = &kivplugcali::CutStripe) {
  if (cut_stripe == nullptr) {
    state.SkipWithError("the placed module could not be loaded");
    return;
  }
  const double copy = FrameCopySeconds();
  kivplugcali::StripeCut cut;
  cut_stripe(picture, kivplugcali::kStripeWalkLeft, &cut);
  if (cut.result != expected_result) {
    state.SkipWithError("the picture does not give the expected result");
    return;
  }
  const double start = ThreadSeconds();
  for (auto _ : state) {
    cut_stripe(picture, kivplugcali::kStripeWalkLeft, &cut);
    benchmark::DoNotOptimize(cut.result);
    benchmark::ClobberMemory();
  }
  const double took = ThreadSeconds() - start;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFrameBytes);
  state.counters["points"] = static_cast<double>(cut.points.size());
  state.counters["x_copy"] = benchmark::Counter(took / copy, benchmark::Counter::kAvgIterations);
  state.counters["offset64"] = static_cast<double>(reinterpret_cast<uintptr_t>(cut_stripe) % 64);
}

void BM_CutStripe_CleanBent(benchmark::State& state) {
  RunCut(state, testsupport::BentStripePicture(), 0);
}
BENCHMARK(BM_CutStripe_CleanBent);

void BM_CutStripe_NoisyBent(benchmark::State& state) {
  RunCut(state, testsupport::NoisyBentStripePicture(), 0);
}
BENCHMARK(BM_CutStripe_NoisyBent);

void BM_CutStripe_TwoStripes(benchmark::State& state) {
  RunCut(state, testsupport::TwoStripePicture(), 1);
}
BENCHMARK(BM_CutStripe_TwoStripes);

void BM_CutStripe_Empty(benchmark::State& state) { RunCut(state, testsupport::EmptyPicture(), 2); }
BENCHMARK(BM_CutStripe_Empty);

// The same pictures with the cut placed N bytes after a 64-byte boundary.
void BM_CutStripe_CleanBent_Placed(benchmark::State& state) {
  RunCut(state, testsupport::BentStripePicture(), 0, PlacedCut(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_CutStripe_CleanBent_Placed)->Arg(0)->Arg(16)->Arg(32)->Arg(48);

void BM_CutStripe_NoisyBent_Placed(benchmark::State& state) {
  RunCut(state, testsupport::NoisyBentStripePicture(), 0,
         PlacedCut(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_CutStripe_NoisyBent_Placed)->Arg(0)->Arg(16)->Arg(32)->Arg(48);

void BM_CutStripe_TwoStripes_Placed(benchmark::State& state) {
  RunCut(state, testsupport::TwoStripePicture(), 1, PlacedCut(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_CutStripe_TwoStripes_Placed)->Arg(0)->Arg(16)->Arg(32)->Arg(48);

void BM_CutStripe_Empty_Placed(benchmark::State& state) {
  RunCut(state, testsupport::EmptyPicture(), 2, PlacedCut(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_CutStripe_Empty_Placed)->Arg(0)->Arg(16)->Arg(32)->Arg(48);

// The same cut with a fresh result each time, as the node's wrapper makes
// one per call: the point list and the cut picture are allocated anew.
void BM_CutStripe_CleanBentFreshResult(benchmark::State& state) {
  const cv::Mat picture = testsupport::BentStripePicture();
  for (auto _ : state) {
    kivplugcali::StripeCut cut;
    kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
    benchmark::DoNotOptimize(cut.result);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFrameBytes);
}
BENCHMARK(BM_CutStripe_CleanBentFreshResult);

}  // namespace

BENCHMARK_MAIN();
