#include "tools/kivrun/scenario.h"

#include <rapidjson/error/en.h>

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

Step ParseStep(const rapidjson::Value& item, int number, const std::string& where) {
  if (!item.IsObject()) throw ScenarioError(where + ": a step must be a JSON object");
  Step step;
  step.number = number;
  int actions = 0;
  for (const auto& member : item.GetObject()) {
    const std::string key = member.name.GetString();
    const rapidjson::Value& value = member.value;
    if (key == "send") {
      ++actions;
      if (!value.IsString() || value.GetStringLength() == 0) {
        throw ScenarioError(where + ": \"send\" needs a topic name");
      }
      step.kind = Step::Kind::kSend;
      step.topic = value.GetString();
    } else if (key == "fields") {
      if (!value.IsObject()) throw ScenarioError(where + ": \"fields\" must be an object");
      step.value = Copy(value);
    } else if (key == "record") {
      if (!value.IsString()) throw ScenarioError(where + ": \"record\" needs a record type name");
      step.record = value.GetString();
    } else if (key == "json") {
      ++actions;
      if (!value.IsObject() && !value.IsNull()) {
        throw ScenarioError(where + ": \"json\" needs a JSON object (or null for a null record)");
      }
      step.kind = Step::Kind::kJson;
      if (value.IsObject()) step.value = Copy(value);
    } else if (key == "advance_us" || key == "advance_ms") {
      ++actions;
      step.kind = Step::Kind::kAdvance;
      step.amount = Count(value, where, key.c_str()) * (key == "advance_ms" ? 1000 : 1);
    } else if (key == "ticks") {
      ++actions;
      step.kind = Step::Kind::kTicks;
      step.amount = Count(value, where, "ticks");
    } else if (key == "trace") {
      ++actions;
      if (!value.IsBool()) throw ScenarioError(where + ": \"trace\" needs true or false");
      step.kind = Step::Kind::kTrace;
      step.flag = value.GetBool();
    } else if (key == "teardown") {
      ++actions;
      if (!value.IsBool() || !value.GetBool()) {
        throw ScenarioError(where + ": \"teardown\" takes the value true");
      }
      step.kind = Step::Kind::kTeardown;
    } else if (key == "camera") {
      ++actions;
      if (!value.IsObject()) throw ScenarioError(where + ": \"camera\" needs an object of camera settings");
      step.kind = Step::Kind::kCamera;
      step.value = Copy(value);
    } else if (key == "log_frames") {
      ++actions;
      if (!value.IsBool()) throw ScenarioError(where + ": \"log_frames\" needs true or false");
      step.kind = Step::Kind::kLogFrames;
      step.flag = value.GetBool();
    } else if (key == "note") {
      ++actions;
      if (!value.IsString()) throw ScenarioError(where + ": \"note\" needs a text");
      step.kind = Step::Kind::kNote;
      step.text = value.GetString();
    } else {
      throw ScenarioError(where + ": unknown member \"" + key +
                          "\" (a step is one of send, json, advance_us, advance_ms, ticks, "
                          "camera, log_frames, trace, teardown, note)");
    }
  }
  if (actions != 1) {
    throw ScenarioError(where + (actions == 0 ? ": the step does nothing"
                                              : ": a step does one thing; split it"));
  }
  if ((step.value || !step.record.empty()) && step.kind != Step::Kind::kSend &&
      step.kind != Step::Kind::kJson && step.kind != Step::Kind::kCamera) {
    throw ScenarioError(where + ": \"fields\" and \"record\" belong to a \"send\" step");
  }
  if (step.kind == Step::Kind::kSend && !step.value) {
    step.value = std::make_shared<rapidjson::Document>(rapidjson::kObjectType);
  }
  return step;
}

}  // namespace

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
    throw ScenarioError(path + ":" + std::to_string(line) + ":" + std::to_string(column) +
                        ": " + rapidjson::GetParseError_En(doc->GetParseError()));
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
      if (scenario.config) throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
      scenario.config = Copy(value);
    } else if (key == "config_file") {
      if (scenario.config) throw ScenarioError(path + ": give \"config\" or \"config_file\", not both");
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
