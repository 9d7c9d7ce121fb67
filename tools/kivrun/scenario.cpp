#include "tools/kivrun/scenario.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "tools/kivrun/json_values.h"

namespace kivrun {
namespace {

// A whole number within [low, high]; the message gives the range.
int64_t Ranged(const rapidjson::Value& value, const std::string& where, const char* key,
               int64_t low, int64_t high) {
  if (!value.IsInt64() || value.GetInt64() < low || value.GetInt64() > high) {
    throw ScenarioError(where + ": \"" + key + "\" needs a whole number from " +
                        std::to_string(low) + " to " + std::to_string(high) +
                        (value.IsNumber() ? ", not " + JsonText::Of(value).text() : std::string()));
  }
  return value.GetInt64();
}

// The member `key` (a plain name, no NUL), or null.
const rapidjson::Value* Member(const rapidjson::Value& object, const char* key) {
  const auto it = object.FindMember(key);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

// The members that say what a step does; every other member modifies one of them.
const char* const kActions[] = {"send",      "json",   "advance_us", "advance_ms", "ticks",
                                "camera",    "trace",  "teardown",   "log_frames", "note",
                                "responder", "repeat", "wait"};
constexpr char kActionList[] =
    "send, json, advance_us, advance_ms, ticks, camera, log_frames, trace, teardown, note, "
    "responder, repeat, wait";

bool IsAction(const std::string& key) {
  for (const char* action : kActions) {
    if (key == action) return true;
  }
  return false;
}

// The members a step of `action` may have besides the action itself.
std::vector<std::string> ModifiersOf(const std::string& action) {
  if (action == "send") return {"fields", "record"};
  if (action == "repeat") return {"until", "every_ticks", "limit", "label"};
  if (action == "wait") return {"within_ticks", "label"};
  if (action == "responder") {
    return {"answer", "fail", "silent", "compute", "needs", "refuse", "delay_ms"};
  }
  return {};
}

std::string Quoted(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

Awaited ParseAwaited(const rapidjson::Value& value, const std::string& where, const char* key) {
  const std::string what = std::string("\"") + key + "\"";
  if (!value.IsObject()) {
    throw ScenarioError(where + ": " + what + " needs {\"topic\": TOPIC, \"fields\": {...}}");
  }
  Awaited awaited;
  for (const auto& member : value.GetObject()) {
    const std::string name = StringOf(member.name);
    if (name == "topic" && member.value.IsString() && member.value.GetStringLength() > 0) {
      awaited.topic = StringOf(member.value);
    } else if (name == "fields" && member.value.IsObject()) {
      const rapidjson::Value* prefix = Member(member.value, kTextPrefix);
      if (prefix && !prefix->IsString()) {
        throw ScenarioError(where + ": " + what + ": \"" + kTextPrefix + "\" needs a text");
      }
      if (prefix && Member(member.value, "text")) {
        throw ScenarioError(where + ": " + what + ": give \"text\" or \"" + kTextPrefix +
                            "\", not both");
      }
      awaited.fields = JsonText::Of(member.value);
    } else if (name == "topic" || name == "fields") {
      throw ScenarioError(where + ": " + what + ": \"" + name + "\" needs " +
                          (name == "topic" ? "a topic name" : "an object of fields"));
    } else {
      throw ScenarioError(where + ": " + what + ": unknown member \"" + Printable(name) +
                          "\" (it has topic and fields)");
    }
  }
  if (awaited.topic.empty()) throw ScenarioError(where + ": " + what + " needs a \"topic\"");
  if (!awaited.fields) awaited.fields = JsonText::EmptyObject();
  return awaited;
}

ResponderSetting ParseResponder(const rapidjson::Value& item, const std::string& where) {
  ResponderSetting setting;
  const rapidjson::Value& name = *Member(item, "responder");
  if (!name.IsString()) throw ScenarioError(where + ": \"responder\" needs a node name");
  setting.node = StringOf(name);
  int modes = 0;
  bool computes = false;
  for (const auto& member : item.GetObject()) {
    const std::string key = StringOf(member.name);
    const rapidjson::Value& value = member.value;
    if (key == "answer") {
      if (!value.IsObject()) throw ScenarioError(where + ": \"answer\" needs an object of fields");
      setting.answer = JsonText::Of(value);
    } else if (key == "fail") {
      ++modes;
      if (!value.IsInt64())
        throw ScenarioError(where + ": \"fail\" needs a whole number (the failure code)");
      setting.mode = ResponderSetting::Mode::kFail;
      setting.code = value.GetInt64();
    } else if (key == "silent") {
      ++modes;
      if (!value.IsBool() || !value.GetBool())
        throw ScenarioError(where + ": \"silent\" takes the value true");
      setting.mode = ResponderSetting::Mode::kSilent;
    } else if (key == "compute") {
      computes = true;
      if (!value.IsBool() || !value.GetBool())
        throw ScenarioError(where + ": \"compute\" takes the value true");
    } else if (key == "needs") {
      if (!value.IsArray())
        throw ScenarioError(where + ": \"needs\" needs a list of picture paths");
      setting.has_needs = true;
      for (const auto& path : value.GetArray()) {
        if (!path.IsString())
          throw ScenarioError(where + ": \"needs\" needs a list of picture paths");
        setting.needs.emplace_back(StringOf(path));
      }
    } else if (key == "refuse") {
      if (!value.IsInt64())
        throw ScenarioError(where + ": \"refuse\" needs a whole number (the failure code)");
      setting.has_refuse = true;
      setting.refuse = value.GetInt64();
    } else if (key == "delay_ms") {
      setting.delay_us = Ranged(value, where, "delay_ms", 1, kMaxDelayMs) * 1000;
    }
  }
  if (modes > 1)
    throw ScenarioError(where + ": a responder either fails or stays silent, not both");
  if (computes && modes > 0)
    throw ScenarioError(where + ": a computing responder neither fails nor stays silent");
  if (computes && setting.answer) {
    throw ScenarioError(where + ": a computing responder works out its answer: no \"answer\"");
  }
  if (computes) setting.mode = ResponderSetting::Mode::kCompute;
  if (setting.mode == ResponderSetting::Mode::kSilent && setting.answer) {
    throw ScenarioError(where + ": a silent responder gives no \"answer\"");
  }
  if (!setting.answer) setting.answer = JsonText::EmptyObject();
  return setting;
}

Step ParseStep(const rapidjson::Value& item, int number, const std::string& where);

std::shared_ptr<Step> ParseRepeated(const rapidjson::Value& value, int number,
                                    const std::string& where) {
  if (!value.IsObject()) throw ScenarioError(where + ": \"repeat\" needs a send or json step");
  auto step = std::make_shared<Step>(ParseStep(value, number, where + ": \"repeat\""));
  if (step->kind != Step::Kind::kSend && step->kind != Step::Kind::kJson) {
    throw ScenarioError(where + ": \"repeat\" repeats a send or json step");
  }
  return step;
}

Step ParseStep(const rapidjson::Value& item, int number, const std::string& where) {
  if (!item.IsObject()) throw ScenarioError(where + ": a step must be a JSON object");
  std::string action;
  for (const auto& member : item.GetObject()) {
    const std::string key = StringOf(member.name);
    if (!IsAction(key)) continue;
    if (!action.empty()) throw ScenarioError(where + ": a step does one thing; split it");
    action = key;
  }
  if (action.empty()) {
    for (const auto& member : item.GetObject()) {
      const std::string key = StringOf(member.name);
      bool known = false;
      for (const char* a : kActions) {
        for (const auto& modifier : ModifiersOf(a)) known = known || key == modifier;
      }
      if (!known) {
        throw ScenarioError(where + ": unknown member \"" + Printable(key) +
                            "\" (a step is one of " + kActionList + ")");
      }
    }
    throw ScenarioError(where + ": the step does nothing (a step is one of " + kActionList + ")");
  }
  const std::vector<std::string> modifiers = ModifiersOf(action);
  for (const auto& member : item.GetObject()) {
    const std::string key = StringOf(member.name);
    if (key == action) continue;
    bool allowed = false;
    for (const auto& modifier : modifiers) allowed = allowed || key == modifier;
    if (!allowed) {
      throw ScenarioError(where + ": \"" + Printable(key) + "\" does not belong to a \"" + action +
                          "\" step" +
                          (modifiers.empty() ? "" : " (it takes " + Quoted(modifiers) + ")"));
    }
  }

  Step step;
  step.number = number;
  const rapidjson::Value& value = *Member(item, action.c_str());
  const rapidjson::Value* fields = Member(item, "fields");
  const rapidjson::Value* record = Member(item, "record");
  const rapidjson::Value* label = Member(item, "label");
  if (action == "send") {
    if (!value.IsString() || value.GetStringLength() == 0) {
      throw ScenarioError(where + ": \"send\" needs a topic name");
    }
    step.kind = Step::Kind::kSend;
    step.topic = StringOf(value);
    if (fields) {
      if (!fields->IsObject()) throw ScenarioError(where + ": \"fields\" must be an object");
      step.value = JsonText::Of(*fields);
    } else {
      step.value = JsonText::EmptyObject();
    }
    if (record) {
      if (!record->IsString() || record->GetStringLength() == 0)
        throw ScenarioError(where + ": \"record\" needs a record type name");
      step.record = StringOf(*record);
    }
  } else if (action == "json") {
    if (!value.IsObject() && !value.IsNull()) {
      throw ScenarioError(where + ": \"json\" needs a JSON object (or null for a null record)");
    }
    step.kind = Step::Kind::kJson;
    if (value.IsObject()) step.value = JsonText::Of(value);
  } else if (action == "advance_us" || action == "advance_ms") {
    step.kind = Step::Kind::kAdvance;
    step.amount = action == "advance_ms"
                      ? Ranged(value, where, "advance_ms", 0, kMaxAdvanceUs / 1000) * 1000
                      : Ranged(value, where, "advance_us", 0, kMaxAdvanceUs);
  } else if (action == "ticks") {
    step.kind = Step::Kind::kTicks;
    step.amount = Ranged(value, where, "ticks", 0, kMaxTicks);
  } else if (action == "trace" || action == "log_frames") {
    if (!value.IsBool()) throw ScenarioError(where + ": \"" + action + "\" needs true or false");
    step.kind = action == "trace" ? Step::Kind::kTrace : Step::Kind::kLogFrames;
    step.flag = value.GetBool();
  } else if (action == "teardown") {
    if (!value.IsBool() || !value.GetBool()) {
      throw ScenarioError(where + ": \"teardown\" takes the value true");
    }
    step.kind = Step::Kind::kTeardown;
  } else if (action == "camera") {
    if (!value.IsObject())
      throw ScenarioError(where + ": \"camera\" needs an object of camera settings");
    step.kind = Step::Kind::kCamera;
    step.value = JsonText::Of(value);
  } else if (action == "note") {
    if (!value.IsString()) throw ScenarioError(where + ": \"note\" needs a text");
    step.kind = Step::Kind::kNote;
    step.text = StringOf(value);
  } else if (action == "responder") {
    step.kind = Step::Kind::kResponder;
    step.responder = std::make_shared<const ResponderSetting>(ParseResponder(item, where));
  } else if (action == "repeat" || action == "wait") {
    if (label) {
      if (!label->IsString()) throw ScenarioError(where + ": \"label\" needs a text");
      step.text = StringOf(*label);
    }
    if (action == "repeat") {
      step.kind = Step::Kind::kRepeat;
      step.repeated = ParseRepeated(value, number, where);
      const rapidjson::Value* until = Member(item, "until");
      if (!until) throw ScenarioError(where + ": \"repeat\" needs \"until\"");
      step.until = ParseAwaited(*until, where, "until");
      const rapidjson::Value* limit = Member(item, "limit");
      if (!limit) {
        throw ScenarioError(where + ": \"repeat\" needs a \"limit\" (the most requests to send)");
      }
      step.limit = Ranged(*limit, where, "limit", 1, kMaxRequests);
      if (const rapidjson::Value* every = Member(item, "every_ticks"))
        step.every_ticks = Ranged(*every, where, "every_ticks", 1, kMaxTicks);
      if (step.every_ticks * step.limit > kMaxRepeatTicks) {
        throw ScenarioError(where + ": \"repeat\" may let at most " +
                            std::to_string(kMaxRepeatTicks) + " ticks pass (every_ticks " +
                            std::to_string(step.every_ticks) + " x limit " +
                            std::to_string(step.limit) + " is " +
                            std::to_string(step.every_ticks * step.limit) + ")");
      }
    } else {
      step.kind = Step::Kind::kWait;
      step.until = ParseAwaited(value, where, "wait");
      const rapidjson::Value* within = Member(item, "within_ticks");
      if (!within) {
        throw ScenarioError(where + ": \"wait\" needs \"within_ticks\" (the most ticks to wait)");
      }
      step.limit = Ranged(*within, where, "within_ticks", 1, kMaxTicks);
    }
  }
  return step;
}

}  // namespace

std::string Awaited::Describe() const { return topic + " " + fields.text(); }

Scenario LoadScenario(const std::string& path) {
  std::shared_ptr<rapidjson::Document> doc = ReadJsonFile(path);
  if (!doc->IsObject()) throw ScenarioError(path + ": a scenario must be a JSON object");
  Scenario scenario;
  scenario.path = path;
  for (const auto& member : doc->GetObject()) {
    const std::string key = StringOf(member.name);
    const rapidjson::Value& value = member.value;
    if (key == "description") {
      if (!value.IsString()) throw ScenarioError(path + ": \"description\" needs a text");
      scenario.description = StringOf(value);
    } else if (key == "node") {
      if (!value.IsString()) throw ScenarioError(path + ": \"node\" needs a node ID");
      scenario.node_id = StringOf(value);
    } else if (key == "config") {
      if (scenario.config)
        throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
      scenario.config = std::make_shared<rapidjson::Document>();
      scenario.config->CopyFrom(value, scenario.config->GetAllocator());
    } else if (key == "config_file") {
      if (scenario.config)
        throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
      if (!value.IsString()) throw ScenarioError(path + ": \"config_file\" needs a file name");
      const std::string file = StringOf(value);
      scenario.config = ReadJsonFile(BesideScenario(path, file));
    } else if (key == "camera_model") {
      if (!value.IsString() || value.GetStringLength() == 0) {
        throw ScenarioError(path + ": \"camera_model\" needs a camera model file's name");
      }
      scenario.camera_model = BesideScenario(path, StringOf(value));
    } else if (key == "plugins") {
      scenario.plugins = ReadPlugins(value, path);
    } else if (key == "nodes") {
      scenario.nodes = ReadNodes(value, path);
    } else if (key == "steps") {
      if (!value.IsArray()) throw ScenarioError(path + ": \"steps\" must be a list");
      int number = 0;
      scenario.steps.reserve(value.Size());
      for (const auto& item : value.GetArray()) {
        ++number;
        scenario.steps.push_back(
            ParseStep(item, number, path + ": step " + std::to_string(number)));
      }
    } else {
      throw ScenarioError(path + ": unknown member \"" + Printable(key) +
                          "\" (a scenario has description, node, config or config_file, "
                          "camera_model, plugins, nodes, steps)");
    }
  }
  return scenario;
}

}  // namespace kivrun
