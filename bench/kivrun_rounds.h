// What the accuracy benchmarks share to play whole rounds with kivrun.
//
// BenchFolder enters the program's own /tmp (platform/sandbox/node_tmp.h;
// the machine's with --machine-tmp) and makes the program's work folder
// there, /tmp/PROGRAM.XXXXXX. PlayRound writes a scenario into the work
// folder, plays it with kivrun (the node in kivrun's further private /tmp,
// or the machine's), and hands back kivrun's event log, how long the round
// took, and what went wrong when kivrun did not exit with 0.
#ifndef LASERCALI_BENCH_KIVRUN_ROUNDS_H_
#define LASERCALI_BENCH_KIVRUN_ROUNDS_H_

#include <string>
#include <vector>

#include "platform/sandbox/private_tmp.h"

namespace benchrounds {

std::string ReadFile(const std::string& path);

// The median of `values`; 0 when there are none.
double Median(std::vector<double> values);

struct BenchFolder {
  sandbox::PrivateTmp tmp;
  std::string kivrun_tmp;  // kivrun's option for the node's /tmp
  std::string dir;         // the work folder
  // Enters the /tmp and makes the folder; false, with the exit code the
  // program ends with (sandbox::kNoPrivateTmpExit, or 1 without a folder),
  // when it cannot.
  bool Enter(const char* program, bool machine_tmp, const std::string& kivrun, int* exit_code);
};

struct PlayedRound {
  std::string problem;  // "" when kivrun exited with 0
  double seconds = 0;   // wall time of the whole round
  std::string log;      // the event log, whatever the exit
};

// Plays `scenario` (its text) as DIR/NAME.json with `options` added to
// kivrun's command line (for example "--pictures-out 'DIR/pictures'").
PlayedRound PlayRound(const std::string& kivrun, const BenchFolder& folder,
                      const std::string& scenario, const std::string& name,
                      const std::string& options = "");

}  // namespace benchrounds

#endif  // LASERCALI_BENCH_KIVRUN_ROUNDS_H_
