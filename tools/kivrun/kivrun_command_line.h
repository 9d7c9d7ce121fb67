// kivrun's command line, read and checked, without running anything.
//
// ReadCommandLine takes the arguments as main gets them (the program's name
// first) and returns what they ask for: the usage (--help), the version
// (--version), or a round or a replay with its settings. --help and
// --version are answered as soon as they come, whatever follows them. A
// command line kivrun cannot follow throws toolcli::UsageError with the
// message kivrun prints before its hint: an option it does not know, a value
// missing or empty, an --echo value other than raw, a --pictures value that
// is no folder (PictureFolder), options that contradict each other
// (--machine-tmp with --private-tmp or --pictures-out; --replay with a
// scenario, --config, --realtime or --pictures), more than one scenario, or
// nothing to play. Files are not opened: reading the scenario, the
// configuration and the recorded log is the round's business. Uses
// getopt_long, so it is not for two threads at once.
#ifndef LASERCALI_TOOLS_KIVRUN_KIVRUN_COMMAND_LINE_H_
#define LASERCALI_TOOLS_KIVRUN_KIVRUN_COMMAND_LINE_H_

#include <string>
#include <vector>

namespace kivrun {

struct CommandLineRequest {
  enum class Action { kRun, kHelp, kVersion };
  Action action = Action::kRun;
  std::vector<std::string> plugins;  // --plugin, in order; empty: the default plug-in
  std::string scenario_path;         // the operand, or empty
  std::string config_path;           // --config
  std::string log_path;              // --log FILE; empty with "--log -" or without --log
  bool log_to_stdout = false;        // --log -
  std::string trace_path;            // --trace-times
  std::string report_dir;            // --report
  bool echo = false;                 // --echo or --echo=raw
  bool fold_echo = true;             // false after --echo=raw (the last --echo decides)
  std::string replay_path;           // --replay
  std::string pictures;              // --pictures, made absolute
  bool progress = false;             // --progress
  bool realtime = false;             // --realtime
  bool private_tmp = false;          // --private-tmp
  bool machine_tmp = false;          // --machine-tmp
  std::string pictures_out;          // --pictures-out
};

CommandLineRequest ReadCommandLine(const std::vector<std::string>& args);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_KIVRUN_COMMAND_LINE_H_
