#include "bench/kivrun_rounds.h"

#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "platform/sandbox/node_tmp.h"

namespace benchrounds {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

bool BenchFolder::Enter(const char* program, bool machine_tmp, const std::string& kivrun,
                        int* exit_code) {
  tmp.Keep(kivrun);
  if (!sandbox::EnterNodeTmp(program, machine_tmp, &tmp, std::cerr)) {
    *exit_code = sandbox::kNoPrivateTmpExit;
    return false;
  }
  kivrun_tmp = machine_tmp ? sandbox::kMachineTmpOption : "--private-tmp";
  std::string pattern = std::string("/tmp/") + program + ".XXXXXX";
  if (!mkdtemp(pattern.data())) {
    std::cerr << program << ": cannot make a folder under /tmp\n";
    *exit_code = 1;
    return false;
  }
  dir = pattern;
  return true;
}

PlayedRound PlayRound(const std::string& kivrun, const BenchFolder& folder,
                      const std::string& scenario, const std::string& name,
                      const std::string& options) {
  PlayedRound round;
  const std::string file = folder.dir + "/" + name + ".json", log = folder.dir + "/log.jsonl",
                    err = folder.dir + "/err.txt";
  std::ofstream(file) << scenario;
  std::remove(log.c_str());
  const std::string command = kivrun + " " + folder.kivrun_tmp + " --log '" + log + "' " + options +
                              " '" + file + "' >/dev/null 2>'" + err + "'";
  const auto start = std::chrono::steady_clock::now();
  const int status = std::system(command.c_str());
  round.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    round.problem = "kivrun exited with " + std::to_string(WEXITSTATUS(status)) + ": " +
                    ReadFile(err).substr(0, 400);
  }
  round.log = ReadFile(log);
  return round;
}

}  // namespace benchrounds
