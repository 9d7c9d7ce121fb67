// The cost of one publication, beside a direct call of the subscriber.
//
// kiv::Publisher<T>::publishWithLine delivers a record to every subscriber of
// the topic through its std::function, and with the process-time trace on it
// also pushes and pops the call site's trace tag. These benchmarks publish to
// one subscriber that only counts, and compare with calling that
// std::function directly:
//
//   BM_DirectCall                 the subscriber's std::function, called
//   BM_Publish_TraceOff           publishWithLine, trace off, the tag a
//                                 std::string made once (as the node's are)
//   BM_Publish_TraceOff_Literal   the same with the tag written as a string
//                                 literal at the call: a std::string of 23
//                                 characters made (on the heap) at every call
//   BM_Publish_TraceOn            trace on (no output stream): the tag is
//                                 pushed and popped as well
//
// Each publishing benchmark reports "x_call": its CPU time per publication
// divided by that of the direct call, measured in the same process right
// before it.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "framework/kiv_any.h"
#include "framework/kiv_publisher.h"
#include "framework/kiv_trace.h"
#include "platform/kiv/host.h"

namespace {

struct Record {
  long count = 0;
};

using Callback = std::function<void(Record*)>;

// A trace tag as the node's are: source path without extension and line.
const std::string kTag = "src/cameralasercali_377";

double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The one subscriber: counts the records it gets.
Callback Subscriber() {
  return [](Record* record) { ++record->count; };
}

// CPU seconds of one direct call of the subscriber, the best of several rounds.
double DirectCallSeconds() {
  Callback callback = Subscriber();
  benchmark::DoNotOptimize(callback);
  Record record;
  double best = 1e9;
  for (int round = 0; round < 20; ++round) {
    constexpr int kCalls = 100000;
    const double start = ThreadSeconds();
    for (int i = 0; i < kCalls; ++i) {
      callback(&record);
      benchmark::ClobberMemory();
    }
    best = std::min(best, (ThreadSeconds() - start) / kCalls);
  }
  return best;
}

// A host (the calling thread is the main thread) and a topic with one
// subscriber, as the framework makes them.
class OneSubscriber {
 public:
  OneSubscriber() : topic_(std::make_shared<kiv::TopicRecord>()) {
    topic_->name = "bench";
    topic_->subscribers.push_back({"counter", kiv::Any(new kiv::Holder<Callback>(Subscriber()))});
  }
  ~OneSubscriber() { SetTrace(false); }

  kiv::Publisher<Record> Publisher() const { return kiv::Publisher<Record>(topic_, "bench"); }

  static void SetTrace(bool on) {
    kiv::KivProcTimeRec& rec = *kiv::KivProcTimeRec::m_pInstance;
    rec.m_bEnable = on;
    rec.m_pOutput = nullptr;
    rec.m_publishInfo.clear();
  }

 private:
  kiv::Host host_;
  std::shared_ptr<kiv::TopicRecord> topic_;
};

void Report(benchmark::State& state, double took, double call, const Record& record) {
  if (record.count < static_cast<long>(state.iterations())) {
    state.SkipWithError("the subscriber missed publications");
    return;
  }
  state.counters["x_call"] = benchmark::Counter(took / call, benchmark::Counter::kAvgIterations);
}

void BM_DirectCall(benchmark::State& state) {
  Callback callback = Subscriber();
  benchmark::DoNotOptimize(callback);
  Record record;
  for (auto _ : state) {
    callback(&record);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(record.count);
}
BENCHMARK(BM_DirectCall);

void BM_Publish_TraceOff(benchmark::State& state) {
  const double call = DirectCallSeconds();
  OneSubscriber topic;
  kiv::Publisher<Record> publisher = topic.Publisher();
  Record record;
  const double start = ThreadSeconds();
  for (auto _ : state) {
    publisher.publishWithLine(&record, kTag);
    benchmark::ClobberMemory();
  }
  Report(state, ThreadSeconds() - start, call, record);
}
BENCHMARK(BM_Publish_TraceOff);

void BM_Publish_TraceOff_Literal(benchmark::State& state) {
  const double call = DirectCallSeconds();
  OneSubscriber topic;
  kiv::Publisher<Record> publisher = topic.Publisher();
  Record record;
  const double start = ThreadSeconds();
  for (auto _ : state) {
    publisher.publishWithLine(&record, "src/cameralasercali_377");
    benchmark::ClobberMemory();
  }
  Report(state, ThreadSeconds() - start, call, record);
}
BENCHMARK(BM_Publish_TraceOff_Literal);

void BM_Publish_TraceOn(benchmark::State& state) {
  const double call = DirectCallSeconds();
  OneSubscriber topic;
  OneSubscriber::SetTrace(true);
  kiv::Publisher<Record> publisher = topic.Publisher();
  Record record;
  const double start = ThreadSeconds();
  for (auto _ : state) {
    publisher.publishWithLine(&record, kTag);
    benchmark::ClobberMemory();
  }
  Report(state, ThreadSeconds() - start, call, record);
}
BENCHMARK(BM_Publish_TraceOn);

}  // namespace

BENCHMARK_MAIN();
