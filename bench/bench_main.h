// The start of a Google Benchmark program whose benchmarks build or drive
// the calibration node: the node gets a private, empty /tmp, or the program
// refuses to run (platform/sandbox/node_tmp.h).
//
// A new benchmark program of that kind ends with
//
//   LASERCALI_NODE_BENCHMARK_MAIN("name: what it times (docs/benchmarks.md).\n")
//
// instead of BENCHMARK_MAIN(), and links bench_node. Its --help then shows
// the text given, the --machine-tmp option and the benchmark library's own
// options. A program with options of its own calls StartNodeBenchmarks
// first in its main, reads its options from what is left of argv, then runs
// the benchmarks (realtime_bench.cpp).
//
// With a private /tmp, a --benchmark_out=FILE under the machine's /tmp is
// still written there. BenchNode (bench_node.h) refuses to build the node in
// a program that did not start this way.
#ifndef LASERCALI_BENCH_BENCH_MAIN_H_
#define LASERCALI_BENCH_BENCH_MAIN_H_

#include <benchmark/benchmark.h>

namespace benchsupport {

// Takes --machine-tmp out of argv; unless it was given (or --help was, which
// runs nothing), enters a private /tmp for the node; then hands argv to
// benchmark::Initialize, whose --help shows `about` (the program's name and
// purpose, and its own options, ending with a line end) and the --machine-tmp
// option before the library's options. Call it first in main, before
// anything starts a thread. Returns -1 when the program may go on, else the
// exit code main returns: sandbox::kNoPrivateTmpExit after saying why.
int StartNodeBenchmarks(int* argc, char** argv, const char* about);

}  // namespace benchsupport

// The whole main of a benchmark program that runs the node and takes no
// options of its own.
#define LASERCALI_NODE_BENCHMARK_MAIN(about)                                  \
  int main(int argc, char** argv) {                                           \
    const int stop = ::benchsupport::StartNodeBenchmarks(&argc, argv, about); \
    if (stop >= 0) return stop;                                               \
    if (::benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;       \
    ::benchmark::RunSpecifiedBenchmarks();                                    \
    ::benchmark::Shutdown();                                                  \
    return 0;                                                                 \
  }

#endif  // LASERCALI_BENCH_BENCH_MAIN_H_
