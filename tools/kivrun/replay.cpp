#include "tools/kivrun/replay.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <climits>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>

#include "tools/kivrun/event_log.h"
#include "tools/kivrun/json_values.h"
#include "tools/kivrun/records.h"
#include "tools/kivrun/responders.h"

namespace kivrun {
namespace {

// Events the node, the framework or the camera give: compared, never played.
const std::set<std::string> kOutputs = {"load",      "built",       "advertise",  "subscribe",
                                        "version",   "console",     "json_reply", "publish",
                                        "camera",    "buffer_leak", "file",       "timer_add",
                                        "timer_del", "exception",   "silent"};
// Events the replay acts on, or that frame the log.
const std::set<std::string> kInputs = {"build",           "note",      "send",   "json",
                                       "advance",         "ticks",     "trace",  "log_frames",
                                       "camera_settings", "responder", "answer", "matched",
                                       "error",           "teardown",  "end"};

// What a log holds is parsed as every JSON text kivrun reads (ParseJson),
// except that restored strings may hold any bytes: no UTF-8 check.
bool ParseRecordedText(rapidjson::Document* doc, const std::string& text) {
  return !ParseJson(doc, text.data(), text.size(), false).IsError();
}

std::string Minified(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

bool IsEvent(const rapidjson::Value& event) {
  if (!event.IsObject() || event.MemberCount() < 2) return false;
  const auto t = event.MemberBegin();
  const auto kind = t + 1;
  return StringOf(t->name) == "t" && t->value.IsInt64() && t->value.GetInt64() >= 0 &&
         StringOf(kind->name) == "event" && kind->value.IsString();
}

// An event as compared: minified, the version tags blanked. `event` is one.
std::string Compared(const rapidjson::Value& event) {
  if (StringOf((event.MemberBegin() + 1)->value) != "version") return Minified(event);
  rapidjson::Document copy;
  copy.CopyFrom(event, copy.GetAllocator());
  for (const char* tag : {"commit", "framework"}) {
    auto it = copy.FindMember(tag);
    if (it != copy.MemberEnd()) it->value.SetString("", 0);
  }
  return Minified(copy);
}

// The checks of one line of the log.
class Line {
 public:
  Line(const std::string& path, int number, const rapidjson::Value& event)
      : path_(path),
        number_(number),
        event_(event),
        kind_(StringOf((event.MemberBegin() + 1)->value)) {}

  [[noreturn]] void Fail(const std::string& what) const {
    throw ReplayError(path_ + ":" + std::to_string(number_) + ": " + what);
  }
  const std::string& kind() const { return kind_; }
  // "a \"send\" event", "an \"error\" event".
  std::string AnEvent() const {
    const bool vowel = !kind_.empty() && std::string("aeiou").find(kind_[0]) != std::string::npos;
    return std::string(vowel ? "an" : "a") + " \"" + kind_ + "\" event";
  }

  // The member `key`, which must be there and pass `ok`; `what` says what it must be.
  template <typename Check>
  const rapidjson::Value& Need(const char* key, Check ok, const std::string& what) const {
    const auto it = event_.FindMember(key);
    if (it == event_.MemberEnd() || !ok(it->value)) {
      Fail(AnEvent() + " needs \"" + key + "\": " + what);
    }
    return it->value;
  }
  std::string NeedText(const char* key, bool nonempty = false) const {
    return StringOf(Need(
        key,
        [nonempty](const rapidjson::Value& v) {
          return v.IsString() && (!nonempty || v.GetStringLength() > 0);
        },
        nonempty ? "a text that is not empty" : "a text"));
  }
  int64_t NeedCount(const char* key, int64_t low, int64_t high) const {
    return Need(
               key,
               [low, high](const rapidjson::Value& v) {
                 return v.IsInt64() && v.GetInt64() >= low && v.GetInt64() <= high;
               },
               "a whole number from " + std::to_string(low) + " to " + std::to_string(high))
        .GetInt64();
  }
  // A scenario's steps count from 1; kivrun's own, played before them
  // (--pictures: the folder, the chessboard step), are step 0.
  int NeedStep() const { return static_cast<int>(NeedCount("step", 0, INT_MAX)); }
  const rapidjson::Value& NeedObject(const char* key) const {
    return Need(
        key, [](const rapidjson::Value& v) { return v.IsObject(); }, "an object");
  }
  bool NeedBool(const char* key) const {
    return Need(
               key, [](const rapidjson::Value& v) { return v.IsBool(); }, "true or false")
        .GetBool();
  }
  const RecordLayout& NeedRecord(const char* key) const {
    const std::string name = NeedText(key);
    const RecordLayout* layout = FindRecord(name);
    if (layout == nullptr) Fail("unknown record type \"" + Printable(name) + "\"");
    return *layout;
  }
  // `fields` must fit `layout`.
  void NeedFit(const RecordLayout& layout, const rapidjson::Value& fields) const {
    std::shared_ptr<void> scratch = layout.make();
    try {
      EncodeFields(layout, fields, scratch.get());
    } catch (const std::invalid_argument& e) {
      Fail("the fields of the \"" + kind_ + "\" event do not fit " + layout.name + ": " + e.what());
    }
  }
  // A kept value for a step: it must be UTF-8, as in a scenario.
  JsonText Kept(const char* key, const rapidjson::Value& value) const {
    JsonText kept = JsonText::Of(value);
    try {
      kept.Parse();
    } catch (const ScenarioError&) {
      Fail("\"" + std::string(key) + "\" of the \"" + kind_ + "\" event is not UTF-8");
    }
    return kept;
  }

 private:
  const std::string& path_;
  int number_;
  const rapidjson::Value& event_;
  std::string kind_;
};

// The members after "t" and "event", as a JSON object.
std::string MembersOf(const rapidjson::Value& event) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  for (auto it = event.MemberBegin() + 2; it != event.MemberEnd(); ++it) {
    writer.Key(it->name.GetString(), it->name.GetStringLength());
    it->value.Accept(writer);
  }
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

// Checks an event the replay acts on and makes what it needs.
void Prepare(const Line& line, const rapidjson::Value& event, RecordedEvent& recorded) {
  const std::string& kind = line.kind();
  Step& step = recorded.step;
  if (kind == "note") {
    step.kind = Step::Kind::kNote;
    step.number = line.NeedStep();
    step.text = line.NeedText("text");
  } else if (kind == "send") {
    step.kind = Step::Kind::kSend;
    step.number = line.NeedStep();
    step.topic = line.NeedText("topic", true);
    const RecordLayout& layout = line.NeedRecord("record");
    step.record = layout.name;
    const rapidjson::Value& fields = line.NeedObject("fields");
    line.NeedFit(layout, fields);
    step.value = line.Kept("fields", fields);
  } else if (kind == "json") {
    step.kind = Step::Kind::kJson;
    step.number = line.NeedStep();
    line.NeedText("topic");
    const rapidjson::Value& command = line.Need(
        "command", [](const rapidjson::Value& v) { return v.IsObject() || v.IsNull(); },
        "an object, or null");
    if (command.IsObject()) step.value = line.Kept("command", command);
  } else if (kind == "advance") {
    step.kind = Step::Kind::kAdvance;
    step.number = line.NeedStep();
    step.amount = line.NeedCount("us", 0, kMaxAdvanceUs);
  } else if (kind == "ticks") {
    step.kind = Step::Kind::kTicks;
    step.number = line.NeedStep();
    step.amount = line.NeedCount("ticks", 0, kMaxTicks);
  } else if (kind == "trace" || kind == "log_frames") {
    step.kind = kind == "trace" ? Step::Kind::kTrace : Step::Kind::kLogFrames;
    step.number = line.NeedStep();
    step.flag = line.NeedBool("on");
  } else if (kind == "camera_settings") {
    // Step 0 is kivrun --pictures' setting, played before the scenario's first step.
    step.kind = Step::Kind::kCamera;
    step.number = static_cast<int>(line.NeedCount("step", 0, INT_MAX));
    step.value = line.Kept("settings", line.NeedObject("settings"));
  } else if (kind == "responder" || kind == "answer") {
    const std::string node = line.NeedText("node");
    bool known = false;
    for (const ResponderKind& k : ResponderKinds()) known = known || node == k.node;
    if (!known) line.Fail("no simulated node \"" + Printable(node) + "\"");
    if (kind == "responder") {
      const std::string mode = line.NeedText("mode");
      if (mode != "answer" && mode != "fail" && mode != "compute" && mode != "silent") {
        line.Fail(line.AnEvent() + " needs \"mode\": answer, fail, compute or silent");
      }
      line.NeedCount("delay_us", 1000, kMaxDelayMs * 1000);
    } else {
      line.NeedText("action");
      line.NeedText("topic", true);
      line.NeedFit(line.NeedRecord("record"), line.NeedObject("fields"));
    }
  } else if (kind == "matched") {
    line.NeedStep();
    line.NeedText("label");
    line.NeedCount("ticks", 0, INT64_MAX);
    if (event.HasMember("requests")) line.NeedCount("requests", 0, INT64_MAX);
  } else if (kind == "error") {
    line.NeedStep();
    line.NeedText("what");
  } else if (kind == "teardown") {
    line.NeedText("name");
  }
}

}  // namespace

rapidjson::Document ParseRecorded(const std::string& json) {
  rapidjson::Document doc;
  if (!ParseRecordedText(&doc, json)) doc.SetNull();
  return doc;
}

std::string ComparedEvent(const std::string& line) {
  rapidjson::Document event;
  if (!ParseRecordedText(&event, line) || !IsEvent(event)) return line;
  return Compared(event);
}

Recording ReadRecording(const std::string& path) {
  const std::string content = ReadTextFile(path, "an event log");
  if (content.empty()) throw ReplayError(path + ": is empty, not a kivrun event log");
  Recording recording;
  recording.path = path;
  bool built = false;
  int end_line = 0;
  int64_t last_t = 0;
  std::size_t start = 0;
  for (int number = 1; start < content.size(); ++number) {
    std::size_t stop = content.find('\n', start);
    const bool cut = stop == std::string::npos;
    if (cut) stop = content.size();
    const std::string text = content.substr(start, stop - start);
    start = stop + 1;
    const std::string where = path + ":" + std::to_string(number) + ": ";
    if (end_line != 0) {
      throw ReplayError(where + "an event after the \"end\" event of line " +
                        std::to_string(end_line));
    }
    if (text.empty() || text == "\r") {
      throw ReplayError(where + "an empty line; an event log has one event on every line");
    }
    std::shared_ptr<rapidjson::Document> parsed;
    try {
      parsed = ParseJsonText(text, path, number);
    } catch (const ScenarioError& e) {
      if (cut) {
        throw ReplayError(where +
                          "the last line is cut off (it has no line end): the log is "
                          "not whole");
      }
      throw ReplayError(e.what());
    }
    rapidjson::Document& event = *parsed;
    if (!IsEvent(event)) {
      const auto t = event.IsObject() ? event.FindMember("t") : event.MemberEnd();
      if (event.IsObject() && event.MemberCount() >= 2 && t == event.MemberBegin() &&
          StringOf((t + 1)->name) == "event") {
        const bool t_ok = t->value.IsInt64() && t->value.GetInt64() >= 0;
        throw ReplayError(where + (t_ok ? "\"event\" needs a text, the kind of event, not " +
                                              Minified((t + 1)->value)
                                        : "\"t\" needs a whole number of microseconds from 0, "
                                          "not " +
                                              Minified(t->value)));
      }
      throw ReplayError(where + (number == 1 ? "not a kivrun event log: " : "not an event: ") +
                        "each line of an event log is an object that starts with \"t\" (the "
                        "clock in microseconds) and \"event\"");
    }
    const int64_t t = event.MemberBegin()->value.GetInt64();
    const Line line(path, number, event);
    const std::string& kind = line.kind();
    if (kind == kClockEvent) {
      line.Fail(
          "the log of a --realtime run: the wall clock put its ticks between the "
          "steps, and a replay on the virtual clock cannot put them in the same places");
    }
    if (kOutputs.count(kind) == 0 && kInputs.count(kind) == 0) {
      line.Fail("unknown event \"" + Printable(kind) + "\"");
    }
    if (t < last_t) {
      line.Fail("the clock goes back, from " + std::to_string(last_t) + " to " + std::to_string(t) +
                " us");
    }
    if (t - last_t > kMaxClockJumpUs) {
      line.Fail("the clock jumps from " + std::to_string(last_t) + " to " + std::to_string(t) +
                " us, further than any step moves it");
    }
    last_t = t;
    recording.lines.push_back(text);
    recording.compared.push_back(Compared(event));
    try {
      RestoreBytes(event);
    } catch (const std::invalid_argument& e) {
      line.Fail(e.what());
    }

    if (kind == "version") {
      recording.commit_tag = line.NeedText("commit");
      recording.framework_tag = line.NeedText("framework");
      continue;
    }
    if (kind == "end") {
      recording.end_code = static_cast<int>(line.NeedCount("exit", 0, 255));
      recording.end_t = t;
      end_line = number;
      continue;
    }
    if (kind == "load") {
      recording.plugins.push_back(line.NeedText("plugin", true));
      continue;
    }
    if (kind == "build") {
      const std::string node = line.NeedText("node");
      const std::string config = Minified(line.Need(
          "config", [](const rapidjson::Value&) { return true; }, "the configuration"));
      // The first is the node under test; the others are the round's other nodes.
      if (built) {
        recording.nodes.emplace_back(node, config);
      } else {
        recording.node_id = node;
        recording.config = config;
      }
      built = true;
      continue;
    }
    const bool input = kInputs.count(kind) != 0 && (kind != "error" || event.HasMember("step"));
    if (!input) continue;
    if (!built) line.Fail(line.AnEvent() + " before the node's \"build\" event");
    RecordedEvent recorded;
    recorded.line = number;
    recorded.t = t;
    recorded.kind = kind;
    Prepare(line, event, recorded);
    recorded.members = MembersOf(event);
    if (kind == "camera_settings" && recorded.step.number == 0) {
      const auto folder = event["settings"].FindMember("pictures");
      if (folder != event["settings"].MemberEnd() && folder->value.IsString()) {
        recording.pictures.push_back(StringOf(folder->value));
      }
    }
    if (kind == "answer") {
      recording.answers[StringOf(event["node"])].push_back(std::move(recorded));
    } else {
      recording.inputs.push_back(std::move(recorded));
    }
  }
  const int last = static_cast<int>(recording.lines.size());
  if (end_line == 0) {
    throw ReplayError(path + ":" + std::to_string(last) +
                      ": the log stops without its \"end\" event: it is cut short");
  }
  if (!built) {
    throw ReplayError(path +
                      ": the recorded run built no node (there is no \"build\" event); "
                      "there is nothing to replay");
  }
  return recording;
}

}  // namespace kivrun
