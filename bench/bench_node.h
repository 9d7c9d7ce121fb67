// The calibration node for benchmarks: built the way the unit tests build
// it, with the simulated camera open and its console lines thrown away.
//
// The node writes a line or two to std::cout on every frame tick. Printed,
// those lines would time the terminal; captured, they would pile up in
// memory. QuietConsole sends them to a buffer that is overwritten over and
// over, so formatting them is still paid for, but nothing more.
//
// The node writes its pictures under /tmp: a program that builds a BenchNode
// starts with StartNodeBenchmarks (bench_main.h), which gives it a private
// /tmp, or BenchNode refuses to build the node (it aborts, saying so).
#ifndef LASERCALI_BENCH_BENCH_NODE_H_
#define LASERCALI_BENCH_BENCH_NODE_H_

#include <time.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <streambuf>

#include "platform/kiv/host.h"
#include "platform/sandbox/node_tmp.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "src/caligetpic.h"
#include "tests/support/node_harness.h"

namespace benchsupport {

// CPU time of the calling thread (user and system), in seconds.
inline double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// A stream buffer that forgets what is written to it.
class NullBuffer : public std::streambuf {
 public:
  NullBuffer() { setp(area_, area_ + sizeof(area_)); }

 protected:
  int_type overflow(int_type c) override {
    setp(area_, area_ + sizeof(area_));
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* /*text*/, std::streamsize count) override { return count; }

 private:
  char area_[256];
};

// While alive, std::cout writes into a NullBuffer.
class QuietConsole {
 public:
  QuietConsole() : old_(std::cout.rdbuf(&null_)) {}
  ~QuietConsole() { std::cout.rdbuf(old_); }
  QuietConsole(const QuietConsole&) = delete;
  QuietConsole& operator=(const QuietConsole&) = delete;

 private:
  NullBuffer null_;
  std::streambuf* old_;
};

// The node in its own host framework (the picture folders made by its
// construction), the camera simulator reset to its defaults, the camera
// open and the frame timer started, a picture at `distance` begun in
// factory mode. Closes the camera and resets the simulator when done.
class BenchNode {
 public:
  explicit BenchNode(unsigned short distance = 30) {
    if (!sandbox::NodeTmpChosen()) {
      std::cerr << "BenchNode: the program did not choose the node's /tmp; start its main with "
                   "benchsupport::StartNodeBenchmarks (bench/bench_main.h)"
                << std::endl;
      std::abort();
    }
    sunxi_cam::sim::Reset();
    harness_ = std::make_unique<testsupport::NodeHarness>();
    quiet_ = std::make_unique<QuietConsole>();
    opened_ = kivplugcali::C_caligetpic.Camera_Open();
    kivplugcali::C_caligetpic.setparam(distance);
  }
  ~BenchNode() {
    kivplugcali::C_caligetpic.Camera_Close();
    quiet_.reset();    // back to the harness's capture,
    harness_.reset();  // then to the real console
    sunxi_cam::sim::Reset();
  }
  BenchNode(const BenchNode&) = delete;
  BenchNode& operator=(const BenchNode&) = delete;

  bool opened() const { return opened_; }
  kiv::Host& host() { return harness_->host(); }
  // One frame tick, as the frame timer runs it.
  void Tick() { kivplugcali::C_caligetpic.GetImageFrameTimer(); }
  void Ticks(int count) {
    for (int i = 0; i < count; ++i) Tick();
  }

 private:
  std::unique_ptr<testsupport::NodeHarness> harness_;
  std::unique_ptr<QuietConsole> quiet_;
  bool opened_ = false;
};

}  // namespace benchsupport

#endif  // LASERCALI_BENCH_BENCH_NODE_H_
