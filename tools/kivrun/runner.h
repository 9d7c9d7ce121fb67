// Runs one scenario against a node plug-in inside a host framework and
// writes the event log.
//
// The runner loads the plug-ins (those of the options, then the scenario's
// own), builds the node under test from the scenario's configuration and
// then the scenario's other nodes, watches every topic the node under test
// advertises, plays the steps in order and tears the node down. Console
// lines, the node's publications (with trace tag and every field), the
// inputs the scenario sends, JSON replies, the node's timers added and
// deleted, its version tags, the calculation nodes' answers (with the
// camera simulator's truth beside a computed one) and every exception that
// left a handler, a timer callback or a builder are written to the log in
// the order they happened. The other nodes are the world around the node
// under test: the log shows that they were built, and their answers, not
// their own framework events.
//
// ReplayRecording plays a recorded log's inputs instead of a scenario (see
// replay.h and replay_player.h) and compares the new log with the recorded
// one as it is written.
#ifndef LASERCALI_TOOLS_KIVRUN_RUNNER_H_
#define LASERCALI_TOOLS_KIVRUN_RUNNER_H_

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "tools/kivrun/event_log.h"
#include "tools/kivrun/replay.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

class Progress;

struct Options {
  // The plug-ins loaded first, in order (--plugin); the scenario's own
  // ("plugins") come after them.
  std::vector<std::string> plugins;
  // Where a plug-in named by its file name alone is found (FindPlugin): in
  // kivrun's build folder the plug-ins built with it (name -> path), else
  // the folder of the plug-ins installed beside kivrun.
  std::map<std::string, std::string> built_plugins;
  std::string plugin_folder;
  std::ostream* echo = nullptr;         // where to copy the node's console lines, or null
  bool fold_echo = true;                // fold runs of the same echoed line (EchoFold)
  std::ostream* trace_times = nullptr;  // where the framework writes delivery times, or null
  bool realtime = false;                // run the main loop on the wall clock
  Progress* progress = nullptr;         // progress lines and the summary, or null
  std::string report_dir;               // where to write the picture report, or empty
  std::string report_name;  // the same as the user named it, for messages ("" = report_dir)
};

// Exit codes of kivrun.
enum ExitCode {
  kOk = 0,
  kScenarioError = 1,  // and a plug-in that cannot be loaded, or a node no plug-in registers
  kUsageError = 2,
  kNodeError = 3,       // a builder threw, or returned no node
  kNoAnswer = 4,        // a "repeat" or "wait" step ran out before its answer came
  kReplayDiffers = 5,   // --replay: the new log differs from the recorded one
  kNoPrivateTmp = 6,    // --private-tmp: the process could not have a /tmp of its own
  kNoFolderCamera = 7,  // --pictures DIR: DIR gives the round no camera (what is wrong is named)
};

// The file of the plug-in `name`: a name with a folder as it is, a file name
// alone where `options` say the plug-ins are.
std::string FindPlugin(const Options& options, const std::string& name);

// Plays `scenario`; returns an ExitCode. With a progress display, the
// finished "repeat" and "wait" steps and, at the end, the round's summary are
// shown on it (the node's console lines too, when they are echoed). With a
// report folder, the picture report is written there at the end. Errors are described on `errors`
// (one line each) and, where they happen inside the run, in the log.
int RunScenario(const Scenario& scenario, const Options& options, std::ostream& log_stream,
                std::ostream& errors);

// Replays `recording` with `options` (never on the wall clock), writing the
// new log to `log_stream`, named `log_name` in messages. Returns kOk when
// the new log has the same events; kReplayDiffers when not, after showing
// the first difference on `errors`; kScenarioError when a recorded input
// cannot be played again; kNodeError when the plug-in cannot be loaded;
// kUsageError when the report cannot be written.
int ReplayRecording(const Recording& recording, const Options& options, std::ostream& log_stream,
                    const std::string& log_name, std::ostream& errors);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_RUNNER_H_
