// kivrun: plays a scenario against the calibration node on a PC.
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "tools/kivrun/progress.h"
#include "tools/kivrun/runner.h"
#include "tools/kivrun/scenario.h"

namespace {

constexpr char kUsage[] = R"(usage: kivrun [OPTIONS] [SCENARIO.json]

Loads the calibration node plug-in into a host framework, builds the node
from its JSON configuration, plays the scenario's steps against it on a
virtual clock and writes an event log: JSON Lines, one event per line, in
the order things happened (console lines, publications with their trace
tags and fields, inputs sent, JSON replies, timers, exceptions).

Without a scenario, kivrun builds the node from --config, shows its
start-up and tears it down.

options:
  --config FILE       node configuration (JSON object); replaces the
                      scenario's "config" / "config_file"
  --plugin PATH       the node plug-in (default: the one built with kivrun)
  --log FILE          write the event log to FILE (default: standard output)
  --echo              also print the node's console lines on standard error
  --trace-times FILE  write the framework's time per delivery to FILE
  --progress          show a line per finished "repeat" or "wait" step and,
                      at the end, a summary of the round (on standard error)
  --realtime          run the main loop on the wall clock: the 10 ms frame
                      timer ticks every 10 ms of real time; on a terminal a
                      progress bar is drawn (and --progress is implied)
  --report DIR        write a picture report into DIR: pictures.png (every
                      picture the round wrote) and report.md
  -h, --help          show this text

exit codes: 0 the scenario ran to its end; 1 the scenario is wrong (the
message names the file and the step); 2 bad command line (or the report
could not be written); 3 the plug-in could not be loaded or the node could
not be built; 4 a "repeat" or "wait" step did not get its answer within its
limit (the message says what came instead).

The scenario format and the event log are described in docs/kivrun.md.
)";

int UsageError(const std::string& message) {
  std::cerr << "kivrun: " << message << "\n(kivrun --help shows the usage)\n";
  return kivrun::kUsageError;
}

}  // namespace

int main(int argc, char** argv) {
  kivrun::Options options;
  options.plugin = KIVRUN_DEFAULT_PLUGIN;
  std::string scenario_path, config_path, log_path, trace_path;
  bool echo = false, progress = false;

  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](std::string& into) {
      if (i + 1 >= argc) return false;
      into = argv[++i];
      return true;
    };
    if (arg == "-h" || arg == "--help") {
      std::cout << kUsage;
      return kivrun::kOk;
    } else if (arg == "--config") {
      if (!value(config_path)) return UsageError("--config needs a file");
    } else if (arg == "--plugin") {
      if (!value(options.plugin)) return UsageError("--plugin needs a path");
    } else if (arg == "--log") {
      if (!value(log_path)) return UsageError("--log needs a file");
    } else if (arg == "--trace-times") {
      if (!value(trace_path)) return UsageError("--trace-times needs a file");
    } else if (arg == "--report") {
      if (!value(options.report_dir)) return UsageError("--report needs a folder");
    } else if (arg == "--echo") {
      echo = true;
    } else if (arg == "--progress") {
      progress = true;
    } else if (arg == "--realtime") {
      options.realtime = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      return UsageError("unknown option " + arg);
    } else if (scenario_path.empty()) {
      scenario_path = arg;
    } else {
      return UsageError("one scenario at a time (got " + scenario_path + " and " + arg + ")");
    }
  }
  if (scenario_path.empty() && config_path.empty()) {
    return UsageError("give a scenario or a --config");
  }

  kivrun::Scenario scenario;
  try {
    if (!scenario_path.empty()) scenario = kivrun::LoadScenario(scenario_path);
    if (!config_path.empty()) scenario.config = kivrun::ReadJsonFile(config_path);
    if (scenario.path.empty()) scenario.path = config_path;
  } catch (const kivrun::ScenarioError& e) {
    std::cerr << "kivrun: " << e.what() << "\n";
    return kivrun::kScenarioError;
  }

  // The node's console is redirected into the log while it runs: keep the
  // terminal's streams for kivrun's own output.
  std::ostream terminal_err(std::cerr.rdbuf());
  std::ostream terminal_out(std::cout.rdbuf());
  if (echo) options.echo = &terminal_err;
  std::unique_ptr<kivrun::Progress> display;
  // On the wall clock a round takes its time: on a terminal, show how far it got.
  const bool bar = options.realtime && isatty(STDERR_FILENO) != 0;
  if (progress || bar) {
    display = std::make_unique<kivrun::Progress>(terminal_err, bar,
                                                 static_cast<int>(scenario.steps.size()));
    options.progress = display.get();
  }

  std::ofstream trace_file;
  if (!trace_path.empty()) {
    trace_file.open(trace_path);
    if (!trace_file) return UsageError("cannot write " + trace_path);
    options.trace_times = &trace_file;
  }
  std::ofstream log_file;
  std::ostream* log = &terminal_out;
  if (!log_path.empty()) {
    log_file.open(log_path);
    if (!log_file) return UsageError("cannot write " + log_path);
    log = &log_file;
  }
  return kivrun::RunScenario(scenario, options, *log, terminal_err);
}
