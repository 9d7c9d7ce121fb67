// Runs one scenario against a node plug-in inside a host framework and
// writes the event log.
//
// The runner loads the plug-in, builds the node from the scenario's
// configuration, watches every topic the node advertises, plays the steps
// in order and tears the node down. Console lines of the node, its
// publications (with trace tag and every field), the inputs the scenario
// sends, JSON replies, timers added and deleted, version tags and every
// exception that left a handler, a timer callback or the builder are
// written to the log in the order they happened.
//
// ReplayRecording plays a recorded log's inputs instead of a scenario (see
// replay.h) and compares the new log with the recorded one as it is
// written: the node is built from the recorded configuration; before each
// recorded input the virtual clock moves on to the input's time, running the
// timers that fall due on the way, as the recorded run did; the steps are
// played again (sends, JSON commands, clock steps, camera settings, notes,
// the trace and frame logging); the simulated calculation nodes take the
// node's requests as set up, and answer each with the next answer the
// recording has for them, after the recorded delay; the runner's own
// "matched" and "error" events and the teardown come where they came.
#ifndef LASERCALI_TOOLS_KIVRUN_RUNNER_H_
#define LASERCALI_TOOLS_KIVRUN_RUNNER_H_

#include <iosfwd>
#include <string>

#include "tools/kivrun/event_log.h"
#include "tools/kivrun/replay.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

class Progress;

struct Options {
  std::string plugin;                   // path of the node plug-in
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
  kScenarioError = 1,
  kUsageError = 2,
  kNodeError = 3,
  kNoAnswer = 4,       // a "repeat" or "wait" step ran out before its answer came
  kReplayDiffers = 5,  // --replay: the new log differs from the recorded one
  kNoPrivateTmp = 6,   // --private-tmp: the process could not have a /tmp of its own
};

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
