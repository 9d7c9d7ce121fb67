// The CPU time of one tick of the frame timer, in each state of a picture.
//
// While the camera is open, KivNode_caligetpic::GetImageFrameTimer runs
// every time_interval milliseconds (10 ms: the camera is asked for 100
// frames/s) and takes one frame. A tick must fit in that period with room to
// spare, for the main thread also serves the requests and results. Each
// benchmark builds the node the way the unit tests do, opens the simulated
// camera, begins a picture at 30 cm and calls the tick directly, with the
// picture held in one state:
//
//   BeforeExposure  frames 0 to 49 of a session: a frame taken and handed back;
//   Exposure        frames 50 to 56: the sensor also takes exposure and gain;
//   Settling        the twenty frames after those: one more frame counted;
//   FactoryStore    factory mode: the frame stored as a BMP file in /tmp/left
//                   or /tmp/right (the lasers take turns);
//   AppCut          app mode: the frame stored as the scan picture
//                   (/tmp/LL.bmp or /tmp/RR.bmp), its stripe cut, and the cut
//                   picture stored in /tmp/left or /tmp/right.
//
// A tick moves the picture on, so the globals it moves are put back before
// every tick (two or three integer stores, timed with the tick). Frames 0 to
// 49 cannot be put back that way: BeforeExposure reopens the camera every 50
// ticks, outside the timing. The node's console lines are thrown away (see
// bench_node.h). Every benchmark reports "pct_period": its CPU time per tick
// (user and system, so the file writes count) as a percentage of the 10 ms
// period. The pictures go to the program's own /tmp (bench_main.h).
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/bench_main.h"
#include "bench/bench_node.h"
#include "src/caligetpic.h"

namespace {

using benchsupport::BenchNode;
using benchsupport::ThreadSeconds;
namespace cali = kivplugcali;

// CPU time of the timed part of a benchmark, without its paused parts.
class TickClock {
 public:
  void Start() { start_ = ThreadSeconds(); }
  void Pause() { took_ += ThreadSeconds() - start_; }
  void Resume() { start_ = ThreadSeconds(); }
  double Stop() {
    Pause();
    return took_;
  }

 private:
  double start_ = 0;
  double took_ = 0;
};

void ReportPeriodShare(benchmark::State& state, double cpu_seconds) {
  const double period_seconds = cali::time_interval * 1e-3;
  state.counters["pct_period"] =
      benchmark::Counter(100.0 * cpu_seconds / period_seconds, benchmark::Counter::kAvgIterations);
}

// Frames 0 to 49: the camera is reopened (a new session, counting from 0)
// every 50 ticks, outside the timing.
void BM_FrameTick_BeforeExposure(benchmark::State& state) {
  BenchNode node;
  if (!node.opened()) return state.SkipWithError("the camera did not open");
  TickClock clock;
  int frame = 0;
  clock.Start();
  for (auto _ : state) {
    if (frame == 50) {
      state.PauseTiming();
      clock.Pause();
      cali::C_caligetpic.Camera_Close();
      cali::C_caligetpic.Camera_Open();
      frame = 0;
      clock.Resume();
      state.ResumeTiming();
    }
    node.Tick();
    ++frame;
  }
  ReportPeriodShare(state, clock.Stop());
  if (cali::set_expgain_flag != 0) state.SkipWithError("a tick set the exposure");
}
BENCHMARK(BM_FrameTick_BeforeExposure)->Unit(benchmark::kMicrosecond);

// Frames 50 to 56: every tick hands the settings to the sensor.
void BM_FrameTick_Exposure(benchmark::State& state) {
  BenchNode node;
  if (!node.opened()) return state.SkipWithError("the camera did not open");
  node.Ticks(50);
  TickClock clock;
  clock.Start();
  for (auto _ : state) {
    cali::set_expgain_flag = 0;
    node.Tick();
  }
  ReportPeriodShare(state, clock.Stop());
  if (cali::set_expgain_flag != 1) state.SkipWithError("the sensor did not take the settings");
}
BENCHMARK(BM_FrameTick_Exposure)->Unit(benchmark::kMicrosecond);

// The settling frames: settings taken, picture not stored yet.
void BM_FrameTick_Settling(benchmark::State& state) {
  BenchNode node;
  if (!node.opened()) return state.SkipWithError("the camera did not open");
  node.Ticks(57);
  if (cali::set_expgain_flag != 7) return state.SkipWithError("the settings were not taken");
  TickClock clock;
  clock.Start();
  for (auto _ : state) {
    cali::delay_count = 0;
    node.Tick();
  }
  ReportPeriodShare(state, clock.Stop());
  if (cali::delay_count != 1 || cali::save_pic_success != 0) {
    state.SkipWithError("the tick did not count a settling frame");
  }
}
BENCHMARK(BM_FrameTick_Settling)->Unit(benchmark::kMicrosecond);

// Runs the first 76 frames of the picture begun at 30 cm in mode `app`, so
// that the next tick stores a picture. Returns false when it does not.
bool ReadyToStore(BenchNode& node, uint8_t app) {
  cali::APP_USE = app;
  node.Ticks(76);
  return cali::set_expgain_flag == 7 && cali::delay_count == 20 && cali::save_pic_success == 0;
}

// A stored picture: each tick stores the frame of the laser it shows.
void RunStore(benchmark::State& state, uint8_t app) {
  BenchNode node;
  if (!node.opened()) return state.SkipWithError("the camera did not open");
  if (!ReadyToStore(node, app)) return state.SkipWithError("the picture did not reach its store");
  // Both lasers once, untimed: files made, and in app mode both cuts checked.
  cali::APPcalires_dis = 30;
  node.Ticks(2);
  if (cali::save_pic_success != 3) return state.SkipWithError("the lasers were not both stored");
  if (cali::APPcalires_dis != 30) return state.SkipWithError("the stripe cut refused the picture");
  TickClock clock;
  clock.Start();
  for (auto _ : state) {
    cali::save_pic_success = 0;
    node.Tick();
  }
  ReportPeriodShare(state, clock.Stop());
  if (cali::save_pic_success == 0) state.SkipWithError("the tick stored nothing");
  if (cali::APPcalires_dis != 30) state.SkipWithError("the stripe cut refused a picture");
}

void BM_FrameTick_FactoryStore(benchmark::State& state) { RunStore(state, 0); }
BENCHMARK(BM_FrameTick_FactoryStore)->Unit(benchmark::kMicrosecond);

void BM_FrameTick_AppCut(benchmark::State& state) { RunStore(state, 1); }
BENCHMARK(BM_FrameTick_AppCut)->Unit(benchmark::kMicrosecond);

}  // namespace

LASERCALI_NODE_BENCHMARK_MAIN(
    "frame_tick_bench: the CPU time of one tick of the node's frame timer in each\n"
    "state of a picture, with the simulated camera open (docs/benchmarks.md).\n")
