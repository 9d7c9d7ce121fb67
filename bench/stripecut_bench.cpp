// The stripe cut's time per picture, beside the time to copy one frame.
//
// The node copies each 640 x 480 brightness plane once (307200 bytes) before
// it cuts it; that copy is the floor any pass over the picture is measured
// against. Every cut benchmark reports "x_copy", its CPU time in frame copies.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <opencv2/core.hpp>
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

// CPU seconds to copy one frame, the best of several rounds. Measured again
// before each cut benchmark, so that both see the same machine.
double FrameCopySeconds() {
  std::vector<uint8_t> frame(kFrameBytes, 7);
  cv::Mat picture = cv::Mat::zeros(480, 640, CV_8UC1);
  double best = 1e9;
  for (int round = 0; round < 20; ++round) {
    constexpr int kCopies = 200;
    const double start = ThreadSeconds();
    for (int i = 0; i < kCopies; ++i) {
      std::memcpy(picture.data, frame.data(), kFrameBytes);
      benchmark::ClobberMemory();
    }
    best = std::min(best, (ThreadSeconds() - start) / kCopies);
  }
  return best;
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

// Cuts `picture` over and over into one reused result, as a caller that keeps
// its StripeCut does: no allocation after the first call.
void RunCut(benchmark::State& state, const cv::Mat& picture, int expected_result) {
  const double copy = FrameCopySeconds();
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
  if (cut.result != expected_result) {
    state.SkipWithError("the picture does not give the expected result");
    return;
  }
  const double start = ThreadSeconds();
  for (auto _ : state) {
    kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
    benchmark::DoNotOptimize(cut.result);
    benchmark::ClobberMemory();
  }
  const double took = ThreadSeconds() - start;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kFrameBytes);
  state.counters["points"] = static_cast<double>(cut.points.size());
  state.counters["x_copy"] = benchmark::Counter(took / copy, benchmark::Counter::kAvgIterations);
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
