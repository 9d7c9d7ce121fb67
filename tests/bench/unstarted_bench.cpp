// A program that builds the node for a benchmark without choosing the
// node's /tmp first (no StartNodeBenchmarks): BenchNode must stop it before
// the node makes its picture folders. bench_main_test runs it.
#include "bench/bench_node.h"

int main() {
  benchsupport::BenchNode node;
  return node.opened() ? 0 : 1;
}
