// Replaying an event log: what a recorded round did to the node, read back
// from its log, and the comparison of the replay's log with the recorded one.
//
// ReadRecording reads a kivrun event log with the limits of every JSON file
// kivrun reads: a regular file of at most kMaxJsonFileBytes, each line
// nested at most kMaxJsonDepth deep, in UTF-8. It checks that the file is an
// event log and is whole: one event on every line, each an object that
// starts with "t" (the clock, never going back and never jumping further
// than a step can move it) and "event" (a kind kivrun writes), the members
// the replay uses present and of their type, and "end" last. Anything else
// throws ReplayError naming the file and the line.
//
// A recording keeps every line, to compare and to show, and in order the
// events the replay acts on: the scenario's steps (as Steps to play again;
// steps count from 1, but a "camera_settings" event may have step 0, the
// setting kivrun --pictures plays first), the simulated calculation nodes'
// settings, the runner's own "matched" and "error" events and the teardown. Their members are kept
// as written, with the exact bytes of strings that are not UTF-8 put back from "bytes_hex". The
// answers of the simulated nodes are kept per node, in the order they came.
//
// LogComparison takes the replay's lines as they are written and finds the
// first event that differs from the recorded one. Two events are the same
// when their JSON, written minified, is the same; only the version tags of
// the "version" event are left out, since they name the build.
#ifndef LASERCALI_TOOLS_KIVRUN_REPLAY_H_
#define LASERCALI_TOOLS_KIVRUN_REPLAY_H_

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/kivrun/scenario.h"

namespace kivrun {

class ReplayError : public ScenarioError {
 public:
  using ScenarioError::ScenarioError;
};

// The first event of a log whose main loop ran on the wall clock
// (--realtime): its "source" is "wall". Such a log cannot be replayed.
inline constexpr char kClockEvent[] = "clock";

// How far the clock may move between two events of a log: the longest
// stretch a scenario passes without an event, an advance step of the most
// it may move and then a "repeat" or "wait" of the most ticks, which logs
// only at its end (13,600,000,000 us).
inline constexpr int64_t kMaxClockJumpUs = kMaxAdvanceUs + kMaxRepeatTicks * kTickUs;

// The version tags expected logs carry instead of a build's own.
inline constexpr char kCommitTagPlaceholder[] = "@BUILD_COMMIT_TAG@";
inline constexpr char kFrameworkTagPlaceholder[] = "@FRAMEWORK_TAG@";

struct RecordedEvent {
  int line = 0;         // in the log, from 1
  int64_t t = 0;        // the main loop's clock
  std::string kind;     // "send", "responder", ...
  std::string members;  // the members after "t" and "event", as a JSON object with exact bytes
  Step step;            // note, send, json, advance, ticks, trace, log_frames, camera_settings
};

struct Recording {
  std::string path;
  std::string node_id;  // of the first "build" event: the node under test
  std::string config;   // the configuration the builder got (JSON text)
  // The plug-ins of the "load" events, by file name, in order.
  std::vector<std::string> plugins;
  // The other nodes of the later "build" events: ID and configuration (JSON text).
  std::vector<std::pair<std::string, std::string>> nodes;
  // The events the replay acts on, in order: the steps above, "responder",
  // "matched", "error" with a "step", "teardown".
  std::vector<RecordedEvent> inputs;
  // The folders of kivrun --pictures: the "pictures" of the camera settings
  // of step 0, which a replay keeps in sight of a private /tmp as the
  // recorded run did.
  std::vector<std::string> pictures;
  // node -> its "answer" events, in order.
  std::map<std::string, std::vector<RecordedEvent>> answers;
  std::vector<std::string> lines;     // every line as written
  std::vector<std::string> compared;  // every line as compared (see LogComparison)
  int64_t end_t = 0;                  // the "end" event
  int end_code = 0;
  std::string commit_tag, framework_tag;  // of the "version" event; empty without one
  bool HasPlaceholderTags() const {
    return commit_tag == kCommitTagPlaceholder || framework_tag == kFrameworkTagPlaceholder;
  }
};

// Reads and checks an event log (see above).
Recording ReadRecording(const std::string& path);

// Parses members kept in a RecordedEvent (which may hold strings that are
// not UTF-8).
rapidjson::Document ParseRecorded(const std::string& json);

// An event as it is compared: minified, the version tags left out. `line`
// must be one event; text that does not parse is compared as it is.
std::string ComparedEvent(const std::string& line);

class LogComparison {
 public:
  explicit LogComparison(const Recording& old) : old_(old) {}

  // The next line of the replay's log.
  void Add(const std::string& line);
  // After the last line: true when every event is the same.
  bool Same() const { return differs_at_ == 0 && count_ == old_.lines.size(); }
  // The line (from 1) of the first difference, 0 while there is none; after
  // the last line a log that is shorter or longer differs where it ends.
  std::size_t FirstDifference() const;
  std::size_t count() const { return count_; }
  // The version tags the replay's node registered; empty without a "version" event.
  const std::string& commit_tag() const { return commit_tag_; }
  const std::string& framework_tag() const { return framework_tag_; }

  // Says where the logs part: the line, up to `context` events before it,
  // the recorded event ("-") and the replay's ("+"). `replay` names the
  // replay's log.
  std::string Report(const std::string& replay, std::size_t context = 3) const;

 private:
  const Recording& old_;
  std::size_t count_ = 0;
  std::size_t differs_at_ = 0;
  std::string new_line_;  // the replay's line where they differ
  std::string commit_tag_, framework_tag_;
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_REPLAY_H_
