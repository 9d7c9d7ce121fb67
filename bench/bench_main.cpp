#include "bench/bench_main.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <iostream>
#include <string>

#include "platform/sandbox/node_tmp.h"
#include "platform/sandbox/private_tmp.h"

namespace benchsupport {

namespace {

const char* program_about = "";

// The --help of the program: its own text, the node's /tmp, then the
// benchmark library's options.
void PrintHelp() {
  std::fputs(program_about, stdout);
  std::fputs("\n", stdout);
  std::fputs(sandbox::kNodeTmpHelp, stdout);
  std::fputs("\nThe benchmark library's options:\n", stdout);
  benchmark::PrintDefaultHelp();
}

// As the benchmark library reads its flags: "--NAME", or "--NAME=VALUE".
bool IsFlag(const char* arg, const char* name) {
  const std::size_t length = std::strlen(name);
  return std::strncmp(arg, "--", 2) == 0 && std::strncmp(arg + 2, name, length) == 0 &&
         (arg[2 + length] == '\0' || arg[2 + length] == '=');
}

}  // namespace

int StartNodeBenchmarks(int* argc, char** argv, const char* about) {
  program_about = about;
  const bool machine = sandbox::TakeMachineTmp(argc, argv);
  bool help = false;
  for (int i = 1; i < *argc; ++i) help = help || IsFlag(argv[i], "help");
  // Kept for the rest of the process: Outer() leads through its descriptor.
  static sandbox::PrivateTmp* const tmp = new sandbox::PrivateTmp();
  const char* program = *argc > 0 ? argv[0] : "benchmark";
  const char* slash = std::strrchr(program, '/');
  if (!help &&
      !sandbox::EnterNodeTmp(slash != nullptr ? slash + 1 : program, machine, tmp, std::cerr)) {
    return sandbox::kNoPrivateTmpExit;
  }
  // The results file the user named, where the user named it.
  static std::deque<std::string> rewritten;
  const std::string out_flag = "--benchmark_out=";
  for (int i = 1; i < *argc; ++i) {
    if (std::strncmp(argv[i], out_flag.c_str(), out_flag.size()) != 0) continue;
    rewritten.push_back(out_flag + tmp->Outer(argv[i] + out_flag.size()));
    argv[i] = rewritten.back().data();
  }
  benchmark::Initialize(argc, argv, PrintHelp);
  return -1;
}

}  // namespace benchsupport
