// How closely the host main loop's real clock keeps a 10 ms period.
//
// kiv::MainLoop::RunRealtime sleeps until a timer's due time on the steady
// clock, then runs it; the next due time is the previous one plus the
// period, so lateness does not add up, and a tick a whole period or more
// late is skipped. The node's frame timer runs this way every 10 ms. Each
// benchmark runs one timer with a 10 ms period for --ticks periods (3000 by
// default: 30 s of wall time):
//
//   CheapTick  the callback only counts: the loop's own precision, which is
//              the sleep and the wake-up;
//   FrameTick  the node's frame timer, started by the node itself with the
//              simulated camera open and a factory picture at 30 cm begun:
//              settings from frame 50, two BMP files written at frames 76
//              and 77, then frames taken and handed back.
//
// Each runs once (one iteration: the time column is the wall time of the
// whole run) and reports the loop's own lateness record (RealtimeLateness):
// ticks run, ticks skipped, and the mean and worst lateness of the ticks
// run, in microseconds. Every scheduled tick is either run or skipped, so
// ticks + skipped is the tick count asked for. The node's pictures go to the
// program's own /tmp (bench_main.h).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "bench/bench_main.h"
#include "bench/bench_node.h"
#include "platform/kiv/main_loop.h"
#include "src/caligetpic.h"

namespace {

constexpr int64_t kPeriodUs = 10000;

// Runs `loop` for `ticks` periods of its 10 ms timer, whose first tick is
// one period from now, and reports its lateness record.
void RunAndReport(benchmark::State& state, kiv::MainLoop& loop, int64_t ticks) {
  // Half a period past the last due time, so that the last tick is in.
  loop.RunRealtime(ticks * kPeriodUs + kPeriodUs / 2);
  const kiv::MainLoop::Lateness& lateness = loop.RealtimeLateness();
  state.counters["ticks"] = static_cast<double>(lateness.ticks);
  state.counters["skipped"] = static_cast<double>(lateness.skipped);
  state.counters["mean_late_us"] = lateness.mean_us();
  state.counters["max_late_us"] = lateness.max_us;
}

void BM_Realtime_CheapTick(benchmark::State& state) {
  const int64_t ticks = state.range(0);
  for (auto _ : state) {
    kiv::MainLoop loop;
    int64_t fired = 0;
    loop.AddTimer([&fired] { benchmark::DoNotOptimize(++fired); }, kPeriodUs, kPeriodUs, "cheap");
    RunAndReport(state, loop, ticks);
  }
}

void BM_Realtime_FrameTick(benchmark::State& state) {
  const int64_t ticks = state.range(0);
  for (auto _ : state) {
    benchsupport::BenchNode node(30);  // starts the frame timer on its host's loop
    if (!node.opened()) {
      state.SkipWithError("the camera did not open");
      break;
    }
    if (kivplugcali::time_interval * 1000 != kPeriodUs) {
      state.SkipWithError("the frame timer's period is not 10 ms");
      break;
    }
    RunAndReport(state, node.host().Loop(), ticks);
    const int64_t frames = sunxi_cam::sim::GetStatus().frames;
    state.counters["frames"] = static_cast<double>(frames);
    if (frames > 77 && kivplugcali::save_pic_success != 3) {
      state.SkipWithError("the picture was not stored");
    }
  }
}

constexpr char kAbout[] =
    "realtime_bench: how closely the main loop's real clock keeps a 10 ms timer,\n"
    "with a callback that only counts and with the node's frame tick\n"
    "(docs/benchmarks.md).\n"
    "  --ticks=N       10 ms periods per run (default 3000: 30 s each)\n";

}  // namespace

// Takes --ticks=N (periods of 10 ms per run, default 3000) beside the
// benchmark library's own flags and --machine-tmp.
int main(int argc, char** argv) {
  const int stop = benchsupport::StartNodeBenchmarks(&argc, argv, kAbout);
  if (stop >= 0) return stop;
  int64_t ticks = 3000;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const std::string flag = "--ticks=";
    char* end = nullptr;
    if (arg.compare(0, flag.size(), flag) == 0) {
      ticks = std::strtoll(arg.c_str() + flag.size(), &end, 10);
    }
    if (end == nullptr || *end != '\0' || ticks <= 0) {
      std::cerr << "realtime_bench: unknown or bad argument " << arg
                << " (--ticks=N takes a positive count of 10 ms periods)" << std::endl;
      return 2;
    }
  }
  struct Variant {
    const char* name;
    void (*run)(benchmark::State&);
  };
  for (const Variant& variant : {Variant{"BM_Realtime_CheapTick", &BM_Realtime_CheapTick},
                                 Variant{"BM_Realtime_FrameTick", &BM_Realtime_FrameTick}}) {
    benchmark::RegisterBenchmark(variant.name, variant.run)
        ->Arg(ticks)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kSecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
