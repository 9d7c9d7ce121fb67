// What every part of one kivrun round shares.
//
// A round has one event log, one host framework (with its main loop), one
// summary of what happened and one terminal. RoundContext holds them for
// the parts that play the steps, watch the node and the camera, answer for
// the calculation nodes and replay a recording. It also holds the node under
// test once it is built, and the plug-ins it came from; Teardown() destroys
// the node and logs the "teardown" event.
//
// The terminal: the node's console lines are echoed (folded, when asked),
// and Show() and Errors() make sure every run of echoed lines held back is
// out, and the progress bar away, before kivrun writes a line of its own.
#ifndef LASERCALI_TOOLS_KIVRUN_ROUND_CONTEXT_H_
#define LASERCALI_TOOLS_KIVRUN_ROUND_CONTEXT_H_

#include <chrono>
#include <exception>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "framework/kiv_node.h"
#include "platform/kiv/host.h"
#include "platform/kiv/plugin.h"
#include "tools/kivrun/event_log.h"
#include "tools/kivrun/progress.h"
#include "tools/kivrun/round_summary.h"
#include "tools/kivrun/runner.h"

namespace kivrun {

class RoundContext {
 public:
  RoundContext(const Options& options, std::ostream& log_stream, std::ostream& errors);
  RoundContext(const RoundContext&) = delete;
  RoundContext& operator=(const RoundContext&) = delete;

  const Options& options;
  EventLog log;
  kiv::Host host;
  RoundSummary summary;
  // Destroyed in reverse: the node, then the builders, then the plug-ins
  // they live in.
  std::vector<std::unique_ptr<kiv::NodeLibrary>> libraries;
  kiv::NodeRegistry registry;
  std::unique_ptr<kiv::KivNode> node;  // the node under test, once built

  // A line the node wrote on `stream` ("stdout" or "stderr"): a "console"
  // event, and the echo when asked.
  void Console(const char* stream, const std::string& line);
  // An "exception" event for an exception that left `where`.
  void Exception(const std::string& where, std::exception_ptr error);
  // A line of kivrun's own on the progress display, after the echo held back.
  void Show(const std::string& line);
  // The error stream, once the echo held back is out and the bar is gone.
  std::ostream& Errors();
  // Writes out the echo held back.
  void FlushEcho() { echo_.Flush(); }
  // Destroys the node, if there is one, and logs the "teardown" event.
  void Teardown();
  // Wall-clock seconds since the round began.
  double WallSeconds() const;

 private:
  std::ostream& errors_;
  EchoFold echo_;
  std::chrono::steady_clock::time_point wall_start_ = std::chrono::steady_clock::now();
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_ROUND_CONTEXT_H_
