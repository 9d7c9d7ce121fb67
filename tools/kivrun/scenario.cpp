#include "tools/kivrun/scenario.h"

#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <fstream>
#include <sstream>

namespace kivrun {
namespace {

std::string Folder(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::shared_ptr<rapidjson::Document> Copy(const rapidjson::Value& value) {
  auto doc = std::make_shared<rapidjson::Document>();
  doc->CopyFrom(value, doc->GetAllocator());
  return doc;
}

int64_t Count(const rapidjson::Value& value, const std::string& where, const char* key) {
  if (!value.IsInt64() || value.GetInt64() < 0) {
    throw ScenarioError(where + ": \"" + key + "\" needs a whole number of 0 or more");
  }
  return value.GetInt64();
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
  if (action == "responder") return {"answer", "fail", "silent", "needs", "refuse", "delay_ms"};
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
    const std::string name = member.name.GetString();
    if (name == "topic" && member.value.IsString() && member.value.GetStringLength() > 0) {
      awaited.topic = member.value.GetString();
    } else if (name == "fields" && member.value.IsObject()) {
      awaited.fields = Copy(member.value);
    } else if (name == "topic" || name == "fields") {
      throw ScenarioError(where + ": " + what + ": \"" + name + "\" needs " +
                          (name == "topic" ? "a topic name" : "an object of fields"));
    } else {
      throw ScenarioError(where + ": " + what + ": unknown member \"" + name +
                          "\" (it has topic and fields)");
    }
  }
  if (awaited.topic.empty()) throw ScenarioError(where + ": " + what + " needs a \"topic\"");
  if (!awaited.fields)
    awaited.fields = std::make_shared<rapidjson::Document>(rapidjson::kObjectType);
  return awaited;
}

int64_t Positive(const rapidjson::Value& value, const std::string& where, const char* key) {
  if (!value.IsInt64() || value.GetInt64() < 1) {
    throw ScenarioError(where + ": \"" + key + "\" needs a whole number of 1 or more");
  }
  return value.GetInt64();
}

ResponderSetting ParseResponder(const rapidjson::Value& item, const std::string& where) {
  ResponderSetting setting;
  const rapidjson::Value& name = item["responder"];
  if (!name.IsString()) throw ScenarioError(where + ": \"responder\" needs a node name");
  setting.node = name.GetString();
  int modes = 0;
  for (const auto& member : item.GetObject()) {
    const std::string key = member.name.GetString();
    const rapidjson::Value& value = member.value;
    if (key == "answer") {
      if (!value.IsObject()) throw ScenarioError(where + ": \"answer\" needs an object of fields");
      setting.answer = Copy(value);
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
    } else if (key == "needs") {
      if (!value.IsArray())
        throw ScenarioError(where + ": \"needs\" needs a list of picture paths");
      setting.has_needs = true;
      for (const auto& path : value.GetArray()) {
        if (!path.IsString())
          throw ScenarioError(where + ": \"needs\" needs a list of picture paths");
        setting.needs.emplace_back(path.GetString());
      }
    } else if (key == "refuse") {
      if (!value.IsInt64())
        throw ScenarioError(where + ": \"refuse\" needs a whole number (the failure code)");
      setting.has_refuse = true;
      setting.refuse = value.GetInt64();
    } else if (key == "delay_ms") {
      setting.delay_us = Positive(value, where, "delay_ms") * 1000;
    }
  }
  if (modes > 1)
    throw ScenarioError(where + ": a responder either fails or stays silent, not both");
  if (setting.mode == ResponderSetting::Mode::kSilent && setting.answer) {
    throw ScenarioError(where + ": a silent responder gives no \"answer\"");
  }
  if (!setting.answer)
    setting.answer = std::make_shared<rapidjson::Document>(rapidjson::kObjectType);
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
    const std::string key = member.name.GetString();
    if (!IsAction(key)) continue;
    if (!action.empty()) throw ScenarioError(where + ": a step does one thing; split it");
    action = key;
  }
  if (action.empty()) {
    for (const auto& member : item.GetObject()) {
      const std::string key = member.name.GetString();
      bool known = false;
      for (const char* a : kActions) {
        for (const auto& modifier : ModifiersOf(a)) known = known || key == modifier;
      }
      if (!known) {
        throw ScenarioError(where + ": unknown member \"" + key + "\" (a step is one of " +
                            kActionList + ")");
      }
    }
    throw ScenarioError(where + ": the step does nothing (a step is one of " + kActionList + ")");
  }
  const std::vector<std::string> modifiers = ModifiersOf(action);
  for (const auto& member : item.GetObject()) {
    const std::string key = member.name.GetString();
    if (key == action) continue;
    bool allowed = false;
    for (const auto& modifier : modifiers) allowed = allowed || key == modifier;
    if (!allowed) {
      throw ScenarioError(where + ": \"" + key + "\" does not belong to a \"" + action + "\" step" +
                          (modifiers.empty() ? "" : " (it takes " + Quoted(modifiers) + ")"));
    }
  }

  Step step;
  step.number = number;
  const rapidjson::Value& value = item[action.c_str()];
  if (action == "send") {
    if (!value.IsString() || value.GetStringLength() == 0) {
      throw ScenarioError(where + ": \"send\" needs a topic name");
    }
    step.kind = Step::Kind::kSend;
    step.topic = value.GetString();
    if (item.HasMember("fields")) {
      if (!item["fields"].IsObject()) throw ScenarioError(where + ": \"fields\" must be an object");
      step.value = Copy(item["fields"]);
    } else {
      step.value = std::make_shared<rapidjson::Document>(rapidjson::kObjectType);
    }
    if (item.HasMember("record")) {
      if (!item["record"].IsString())
        throw ScenarioError(where + ": \"record\" needs a record type name");
      step.record = item["record"].GetString();
    }
  } else if (action == "json") {
    if (!value.IsObject() && !value.IsNull()) {
      throw ScenarioError(where + ": \"json\" needs a JSON object (or null for a null record)");
    }
    step.kind = Step::Kind::kJson;
    if (value.IsObject()) step.value = Copy(value);
  } else if (action == "advance_us" || action == "advance_ms") {
    step.kind = Step::Kind::kAdvance;
    step.amount = Count(value, where, action.c_str()) * (action == "advance_ms" ? 1000 : 1);
  } else if (action == "ticks") {
    step.kind = Step::Kind::kTicks;
    step.amount = Count(value, where, "ticks");
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
    step.value = Copy(value);
  } else if (action == "note") {
    if (!value.IsString()) throw ScenarioError(where + ": \"note\" needs a text");
    step.kind = Step::Kind::kNote;
    step.text = value.GetString();
  } else if (action == "responder") {
    step.kind = Step::Kind::kResponder;
    step.responder = ParseResponder(item, where);
  } else if (action == "repeat" || action == "wait") {
    if (item.HasMember("label")) {
      if (!item["label"].IsString()) throw ScenarioError(where + ": \"label\" needs a text");
      step.text = item["label"].GetString();
    }
    if (action == "repeat") {
      step.kind = Step::Kind::kRepeat;
      step.repeated = ParseRepeated(value, number, where);
      if (!item.HasMember("until")) throw ScenarioError(where + ": \"repeat\" needs \"until\"");
      step.until = ParseAwaited(item["until"], where, "until");
      if (!item.HasMember("limit")) {
        throw ScenarioError(where + ": \"repeat\" needs a \"limit\" (the most requests to send)");
      }
      step.limit = Positive(item["limit"], where, "limit");
      if (item.HasMember("every_ticks"))
        step.every_ticks = Positive(item["every_ticks"], where, "every_ticks");
    } else {
      step.kind = Step::Kind::kWait;
      step.until = ParseAwaited(value, where, "wait");
      if (!item.HasMember("within_ticks")) {
        throw ScenarioError(where + ": \"wait\" needs \"within_ticks\" (the most ticks to wait)");
      }
      step.limit = Positive(item["within_ticks"], where, "within_ticks");
    }
  }
  return step;
}

}  // namespace

std::string Awaited::Describe() const {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  fields->Accept(writer);
  return topic + " " + buffer.GetString();
}

std::shared_ptr<rapidjson::Document> ReadJsonFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ScenarioError(path + ": cannot read the file");
  std::stringstream text;
  text << in.rdbuf();
  const std::string content = text.str();
  auto doc = std::make_shared<rapidjson::Document>();
  doc->Parse(content.c_str(), content.size());
  if (doc->HasParseError()) {
    const std::size_t offset = doc->GetErrorOffset();
    int line = 1, column = 1;
    for (std::size_t i = 0; i < offset && i < content.size(); ++i) {
      if (content[i] == '\n') {
        ++line;
        column = 1;
      } else {
        ++column;
      }
    }
    throw ScenarioError(path + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                        rapidjson::GetParseError_En(doc->GetParseError()));
  }
  return doc;
}

Scenario LoadScenario(const std::string& path) {
  std::shared_ptr<rapidjson::Document> doc = ReadJsonFile(path);
  if (!doc->IsObject()) throw ScenarioError(path + ": a scenario must be a JSON object");
  Scenario scenario;
  scenario.path = path;
  for (const auto& member : doc->GetObject()) {
    const std::string key = member.name.GetString();
    const rapidjson::Value& value = member.value;
    if (key == "description") {
      if (!value.IsString()) throw ScenarioError(path + ": \"description\" needs a text");
      scenario.description = value.GetString();
    } else if (key == "node") {
      if (!value.IsString()) throw ScenarioError(path + ": \"node\" needs a node ID");
      scenario.node_id = value.GetString();
    } else if (key == "config") {
      if (scenario.config)
        throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
      scenario.config = Copy(value);
    } else if (key == "config_file") {
      if (scenario.config)
        throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
      if (!value.IsString()) throw ScenarioError(path + ": \"config_file\" needs a file name");
      const std::string file = value.GetString();
      scenario.config = ReadJsonFile(file.rfind('/', 0) == 0 ? file : Folder(path) + "/" + file);
    } else if (key == "steps") {
      if (!value.IsArray()) throw ScenarioError(path + ": \"steps\" must be a list");
      int number = 0;
      for (const auto& item : value.GetArray()) {
        ++number;
        scenario.steps.push_back(
            ParseStep(item, number, path + ": step " + std::to_string(number)));
      }
    } else {
      throw ScenarioError(path + ": unknown member \"" + key +
                          "\" (a scenario has description, node, config or config_file, steps)");
    }
  }
  return scenario;
}

}  // namespace kivrun
