// Playing a scenario's steps against the node under test.
//
// StepPlayer plays one step at a time (docs/kivrun.md, "Scenario files"):
// it sends records and JSON commands (logging each before it is delivered,
// and the JSON reply after), moves the main loop's clock (at once on the
// virtual clock, in real time with --realtime), applies camera settings,
// switches the trace and the frame log, writes notes, sets up the simulated
// calculation nodes, and plays "repeat" and "wait" steps: it lets ticks pass
// until the node publishes what the step waits for, and says what came
// instead when it runs out. After the chessboard views of a picture folder
// it stops the round when they measured no camera, naming each view the
// camera parameter node left out by its file. Each step's outcome is an exit code: kOk, or
// the code the run stops with after its "error" event.
#ifndef LASERCALI_TOOLS_KIVRUN_STEP_PLAYER_H_
#define LASERCALI_TOOLS_KIVRUN_STEP_PLAYER_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <functional>
#include <string>

#include "tools/kivrun/camera_watch.h"
#include "tools/kivrun/node_watch.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"
#include "tools/kivrun/scenario.h"

namespace kivrun {

// The progress line of a finished "repeat" (with its requests) or "wait" step.
std::string MatchedLine(int64_t now, const std::string& label, bool repeat, int64_t requests,
                        int64_t ticks);

// True when `decoded` has every member of `wanted` with the same value; a
// list in `wanted` matches the leading elements of the decoded array, and
// "text_prefix" a "text" that begins with it.
bool FieldsMatch(const rapidjson::Value& wanted, const rapidjson::Value& decoded);

class StepPlayer {
 public:
  // `path` names the scenario (or the replayed log) in messages.
  StepPlayer(RoundContext& round, NodeWatch& node_watch, CameraWatch& camera_watch,
             std::string path);
  StepPlayer(const StepPlayer&) = delete;
  StepPlayer& operator=(const StepPlayer&) = delete;

  // The simulated calculation nodes the "responder" steps set up.
  void SetResponders(Responders* responders) { responders_ = responders; }
  // In a replay: the recorded line being played, which messages name.
  void SetReplayLine(int line) { replay_line_ = line; }

  // Plays one step; kOk, or the exit code when the run cannot go on.
  int Play(const Step& step);
  // Moves the main loop on by `us`: at once on the virtual clock, in wall
  // time on the real one (stopping early once `stop` says so).
  void Pass(int64_t us, const std::function<bool()>& stop);

 private:
  // A "repeat" or "wait" step in progress: what it waits for, whether it
  // came, and the last publication on the awaited topic that did not match.
  struct Awaiting {
    const Awaited* awaited;
    const rapidjson::Value* fields;  // the awaited fields, parsed
    bool matched = false;
    std::string last;
    int camera_failures = 0;     // camera calls that failed meanwhile
    std::string camera_failure;  // the last of them: the call and its reason
  };

  void Published(const std::string& topic, const rapidjson::Value& fields);
  int Fail(const Step& step, int code, const std::string& what);
  // Plays a send or json step; kOk, or the exit code when it cannot be sent.
  int Request(const Step& step);
  void Send(const Step& step);
  const RecordLayout* SendLayout(const Step& step) const;
  void Json(const Step& step);
  int Responder(const Step& step);
  int Await(const Step& step);
  int CameraFromViews(const Step& step);
  void RunTicks(int64_t count);
  // Where a step's messages point: "FILE: step N", in a replay "LOG:LINE: step N".
  std::string StepWhere(const Step& step) const;
  std::string Tag(const Step& step) const { return "kivrun/step_" + std::to_string(step.number); }

  RoundContext& round_;
  NodeWatch& node_watch_;
  CameraWatch& camera_watch_;
  std::string path_;
  int replay_line_ = 0;
  Responders* responders_ = nullptr;
  Awaiting* awaiting_ = nullptr;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_STEP_PLAYER_H_
