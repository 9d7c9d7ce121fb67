// kivrun as an observer of the calculation nodes' answers.
//
// The calculation nodes of liblasercalc.so publish a report right before
// each answer (msgs/calcmsgs.h). AnswerWatch subscribes to the reports and
// to the answer topics before any node is built, so it is the first to see
// each answer: it logs the answer as an "answer" event before the node under
// test takes it, as kivrun's scripted calculation nodes do. The event holds
// the answer's fields and what the report says, in the event log's units and
// roundings, and beside it the camera simulator's truth and the errors
// (docs/calibration.md, "In the event log"); the truth never reaches the
// nodes. The round's summary is told of every such answer.
//
// A publication on an answer topic that no report announced (a scripted
// node's answer, which kivrun logs itself) is left alone.
#ifndef LASERCALI_TOOLS_KIVRUN_ANSWER_WATCH_H_
#define LASERCALI_TOOLS_KIVRUN_ANSWER_WATCH_H_

#include <rapidjson/document.h>

#include <map>
#include <set>
#include <string>

#include "tools/kivrun/event_log.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"

namespace kivrun {

// Adds to `event` what a calculation node's `report` says it computed, with
// the camera simulator's truth and the errors beside it. The members come in
// the order docs/calibration.md gives; "code" and "reason" last.
void AddComputed(const rapidjson::Value& report, Fields& event);

class AnswerWatch {
 public:
  explicit AnswerWatch(RoundContext& round) : round_(round) {}
  AnswerWatch(const AnswerWatch&) = delete;
  AnswerWatch& operator=(const AnswerWatch&) = delete;

  // Subscribes to the reports and the answer topics (see above).
  void Start();

 private:
  void Answered(const ResponderKind& kind, const void* record);

  RoundContext& round_;
  std::map<std::string, rapidjson::Document> pending_;  // node -> its report, until it answers
};

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_ANSWER_WATCH_H_
