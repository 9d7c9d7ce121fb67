// The steps that send: a record on a topic, or a JSON command on the node's
// identity topic (StepPlayer, step_player.h).
#include <memory>
#include <string>

#include "framework/kiv.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "tools/kivrun/records.h"
#include "tools/kivrun/step_player.h"

namespace kivrun {

// The record layout a send step sends: the one it names, else the one the
// node takes on the topic.
const RecordLayout* StepPlayer::SendLayout(const Step& step) const {
  const std::string where = StepWhere(step) + ": ";
  if (!step.record.empty()) {
    const RecordLayout* layout = FindRecord(step.record);
    if (layout == nullptr) {
      throw ScenarioError(where + "unknown record type \"" + step.record +
                          "\" (known: " + KnownRecordNames() + ")");
    }
    return layout;
  }
  const std::vector<const std::type_info*>* takes = node_watch_.Takes(step.topic);
  if (takes == nullptr) {
    throw ScenarioError(where + "the node does not subscribe to \"" + step.topic +
                        "\"; name the record type with \"record\" to send anyway");
  }
  std::string names;
  for (const std::type_info* type : *takes) {
    names += (names.empty() ? "" : ", ") + RecordName(*type);
  }
  if (takes->size() > 1) {
    // A node named after a topic it subscribes to takes its JSON commands there too.
    throw ScenarioError(where + "the node takes several record types on \"" + step.topic + "\" (" +
                        names + "); name the one to send with \"record\"");
  }
  const RecordLayout* layout = FindRecord(*takes->front());
  if (layout == nullptr) {
    throw ScenarioError(where + "the node takes " + names + " on \"" + step.topic +
                        "\", which a send step cannot fill; use a \"json\" step");
  }
  return layout;
}

void StepPlayer::Send(const Step& step) {
  const RecordLayout* layout = SendLayout(step);
  const rapidjson::Document wanted = step.value.Parse();
  std::shared_ptr<void> record = layout->make();
  try {
    EncodeFields(*layout, wanted, record.get());
  } catch (const std::invalid_argument& e) {
    throw ScenarioError(StepWhere(step) + ": " + e.what());
  }
  Fields f;
  f.Int("step", step.number).Str("topic", step.topic).Str("record", layout->name);
  rapidjson::Value fields(rapidjson::kObjectType);
  DecodeFields(*layout, record.get(), fields, f.allocator());
  RoundSummary& summary = round_.summary;
  summary.Sent(step.topic);
  if ((step.topic == calitopics::kCameraCali || step.topic == calitopics::kLaserCalibration) &&
      fields.HasMember("distance")) {
    summary.Requested(static_cast<uint16_t>(fields["distance"].GetInt()),
                      step.topic == calitopics::kLaserCalibration);
  }
  f.value().AddMember("fields", fields, f.allocator());
  round_.log.Write("send", f.value());
  try {
    layout->publish(round_.host.FindTopic(step.topic), step.topic, record.get(), Tag(step));
  } catch (...) {
    round_.Exception("delivery of step " + std::to_string(step.number), std::current_exception());
  }
}

void StepPlayer::Json(const Step& step) {
  const std::string topic = round_.node->NodeName();
  const rapidjson::Document command = step.value.Parse();
  const bool has_command = step.value.present();
  Fields f;
  f.Int("step", step.number).Str("topic", topic);
  if (has_command) {
    f.Json("command", command);
  } else {
    f.value().AddMember("command", rapidjson::Value(), f.allocator());
  }
  round_.log.Write("json", f.value());
  round_.summary.Sent("JSON command");
  if (has_command) {
    for (const char* key : {"distance", "APP"}) {
      if (command.HasMember(key) && command[key].IsInt64()) {
        round_.summary.Requested(static_cast<uint16_t>(command[key].GetInt64()), key[0] == 'A');
      }
    }
  }

  kiv::Publisher<KivJsonMsg> publisher(round_.host.FindTopic(topic), topic);
  KivJsonMsg message;
  if (has_command) message.command.CopyFrom(command, message.command.GetAllocator());
  try {
    publisher.publishWithLine(has_command ? &message : nullptr, Tag(step));
  } catch (...) {
    round_.Exception("delivery of step " + std::to_string(step.number), std::current_exception());
  }
  if (!has_command) return;
  Fields reply;
  reply.Int("step", step.number);
  rapidjson::Value members(rapidjson::kArrayType);
  for (const auto& member : message.reply.GetObject()) {
    rapidjson::Value pair(rapidjson::kArrayType);
    pair.PushBack(rapidjson::Value(member.name, reply.allocator()), reply.allocator());
    pair.PushBack(rapidjson::Value(member.value, reply.allocator()), reply.allocator());
    members.PushBack(pair, reply.allocator());
  }
  reply.value().AddMember("members", members, reply.allocator());
  round_.log.Write("json_reply", reply.value());
}

}  // namespace kivrun
