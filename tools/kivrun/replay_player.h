// Playing a recorded round's inputs again (kivrun --replay).
//
// ReplayPlayer goes through a recording's inputs in order (replay.h): before
// each it moves the virtual clock on to the input's time, running the
// timers that fall due on the way, as the recorded run did; steps are
// played again through the StepPlayer; the simulated calculation nodes are
// set up as recorded and answer each request the node sends them with the
// next answer the recording has for them, after the recorded delay (a
// silent node logs "silent"; a request beyond the recorded answers gets
// none); the runner's own "matched" and "error" events and the teardown
// come where they came.
#ifndef LASERCALI_TOOLS_KIVRUN_REPLAY_PLAYER_H_
#define LASERCALI_TOOLS_KIVRUN_REPLAY_PLAYER_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "tools/kivrun/replay.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"
#include "tools/kivrun/step_player.h"

namespace kivrun {

class ReplayPlayer {
 public:
  ReplayPlayer(RoundContext& round, StepPlayer& steps, const Recording& recording)
      : round_(round), steps_(steps), recording_(recording) {}
  ReplayPlayer(const ReplayPlayer&) = delete;
  ReplayPlayer& operator=(const ReplayPlayer&) = delete;

  // Plays every recorded input; the round's exit code.
  int Play();
  // Whether a recorded input could not be played again.
  bool failed() const { return failed_; }

 private:
  // A replayed simulated calculation node: how it is set up now, and how
  // many of its recorded answers it has given.
  struct ReplayedNode {
    const ResponderKind* kind = nullptr;
    bool silent = false;
    bool computes = false;  // its answers carry what it computed
    int64_t delay_us = 0;
    std::size_t answered = 0;
  };

  // Moves the virtual clock on to `t`, when it is not there yet.
  void AdvanceTo(int64_t t);
  void Responder(const RecordedEvent& event);
  void Request(const std::string& node, const void* request);
  void Answer(const std::string& node);

  RoundContext& round_;
  StepPlayer& steps_;
  const Recording& recording_;
  std::map<std::string, ReplayedNode> replayed_;
  bool failed_ = false;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_REPLAY_PLAYER_H_
