#include "tools/kivrun/replay_player.h"

#include <memory>

#include "tools/kivrun/json_values.h"
#include "tools/kivrun/records.h"

namespace kivrun {

void ReplayPlayer::AdvanceTo(int64_t t) {
  const int64_t now = round_.host.Loop().Now();
  if (t > now) steps_.Pass(t - now, nullptr);
}

int ReplayPlayer::Play() {
  int code = kOk;
  for (const RecordedEvent& event : recording_.inputs) {
    AdvanceTo(event.t);
    steps_.SetReplayLine(event.line);
    if (event.kind == "teardown") {
      round_.Teardown();
    } else if (event.kind == "responder") {
      Responder(event);
    } else if (event.kind == "matched" || event.kind == "error") {
      // The recorded run's own verdicts: a step got what it waited for, or
      // the run stopped here.
      const rapidjson::Document members = ParseRecorded(event.members);
      round_.log.Write(event.kind.c_str(), members);
      if (event.kind == "error") {
        code = recording_.end_code;
      } else if (round_.options.progress) {
        const auto requests = members.FindMember("requests");
        round_.Show(MatchedLine(round_.host.Loop().Now(), StringOf(members["label"]),
                                requests != members.MemberEnd(),
                                requests != members.MemberEnd() ? requests->value.GetInt64() : 0,
                                members["ticks"].GetInt64()));
      }
    } else {
      const int played = steps_.Play(event.step);
      if (played != kOk) {
        failed_ = true;
        return played;
      }
    }
  }
  return code;
}

void ReplayPlayer::Responder(const RecordedEvent& event) {
  const rapidjson::Document members = ParseRecorded(event.members);
  round_.log.Write("responder", members);
  const std::string node = StringOf(members["node"]);
  const auto [it, first] = replayed_.try_emplace(node);
  ReplayedNode& replayed = it->second;
  for (const ResponderKind& kind : ResponderKinds()) {
    if (node == kind.node) replayed.kind = &kind;
  }
  replayed.silent = StringOf(members["mode"]) == "silent";
  replayed.computes = StringOf(members["mode"]) == "compute";
  replayed.delay_us = members["delay_us"].GetInt64();
  if (!first) return;
  FindRecord(replayed.kind->request)
      ->watch(round_.host, node, replayed.kind->listens,
              [this, node](const void* request) { Request(node, request); });
}

void ReplayPlayer::Request(const std::string& node, const void* request) {
  const ReplayedNode& replayed = replayed_.at(node);
  if (!TakesRequest(*replayed.kind, request)) return;
  if (replayed.silent) {
    Fields f;
    f.Str("node", node).Str("topic", replayed.kind->listens);
    round_.log.Write("silent", f.value());
    return;
  }
  round_.host.Loop().AddTimer([this, node] { Answer(node); }, replayed.delay_us, 0,
                              "kivrun/" + node);
}

void ReplayPlayer::Answer(const std::string& node) {
  ReplayedNode& replayed = replayed_.at(node);
  const auto answers = recording_.answers.find(node);
  // Asked more often than in the recording: there is no answer to give.
  if (answers == recording_.answers.end() || replayed.answered >= answers->second.size()) return;
  const RecordedEvent& answer = answers->second[replayed.answered++];
  const rapidjson::Document members = ParseRecorded(answer.members);
  round_.log.Write("answer", members);
  const RecordLayout& layout = *FindRecord(StringOf(members["record"]));
  std::shared_ptr<void> record = layout.make();
  EncodeFields(layout, members["fields"], record.get());
  const std::string topic = StringOf(members["topic"]);
  layout.publish(round_.host.FindTopic(topic), topic, record.get(), "kivrun/" + node);
  round_.summary.Answered(node, StringOf(members["action"]), members);
  if (replayed.computes) round_.summary.Computed(node, members);
}

}  // namespace kivrun
