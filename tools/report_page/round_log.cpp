#include "tools/report_page/round_log.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace reportpage {

namespace {

std::string Str(const rapidjson::Value& object, const char* name) {
  const rapidjson::Value& v = Member(object, name);
  return v.IsString() ? std::string(v.GetString(), v.GetStringLength()) : std::string();
}

const std::set<std::string>& CalculationTopics() {
  static const std::set<std::string> topics = {"LASER_CALIBR_REQ", "CAMERACALICHECK",
                                               "DISTANCESTARTCACULATE", "CAMERACALI_IEPARAM"};
  return topics;
}

// The camera settings of one event over the camera as it stood.
void ApplyCameraSettings(const rapidjson::Value& settings, RoundLog* log) {
  if (Member(settings, "reset").IsTrue()) {
    log->camera = calc::Camera();
    log->wall_height = 200;
  }
  const rapidjson::Value& scene = Member(settings, "scene");
  const rapidjson::Value& camera = Member(scene, "camera");
  const struct {
    const char* name;
    double* value;
  } members[] = {{"fx", &log->camera.fx},         {"fy", &log->camera.fy},
                 {"cx", &log->camera.cx},         {"cy", &log->camera.cy},
                 {"height", &log->camera.height}, {"pitch", &log->camera.pitch}};
  for (const auto& m : members) {
    const rapidjson::Value& v = Member(camera, m.name);
    if (v.IsNumber()) *m.value = v.GetDouble();
  }
  const rapidjson::Value& wall_height = Member(scene, "wall_height");
  if (wall_height.IsNumber()) log->wall_height = wall_height.GetDouble();
}

// One event into the timeline, when it is one a person follows.
void AddToTimeline(const std::string& kind, const rapidjson::Value& event, int64_t t,
                   RoundLog* log) {
  auto add = [&](int lane, std::string text) {
    log->timeline.push_back({t, lane, std::move(text)});
  };
  const std::string topic = Str(event, "topic");
  if (kind == "send") {
    add(kToNode, topic + " " + Compact(Member(event, "fields")));
  } else if (kind == "json") {
    add(kToNode, "JSON command " + Compact(Member(event, "command")));
  } else if (kind == "json_reply") {
    add(kFromNode, "JSON reply " + Compact(Member(event, "members")));
  } else if (kind == "publish") {
    add(CalculationTopics().count(topic) ? kToCalculation : kFromNode,
        topic + " " + Compact(Member(event, "fields")));
  } else if (kind == "answer") {
    std::string text = Str(event, "node") + " node: " + Str(event, "action") + " on " + topic +
                       " " + Compact(Member(event, "fields"));
    const std::string reason = Str(event, "reason");
    if (!reason.empty()) text += "; " + reason;
    add(kFromCalculation, text);
  } else if (kind == "silent") {
    add(kFromCalculation, Str(event, "node") + " node: took a request and stays silent");
  } else if (kind == "file") {
    add(kPictures, Str(event, "path") + " written, " + Compact(Member(event, "size")) +
                       " bytes, FNV-1a 64 " + Str(event, "fnv1a64"));
  } else if (kind == "matched") {
    add(kRound, "came: " + Str(event, "label"));
  } else if (kind == "note") {
    add(kRound, "note: " + Str(event, "text"));
  } else if (kind == "error") {
    add(kRound, "error: " + Str(event, "what"));
  } else if (kind == "exception") {
    add(kRound, "exception in " + Str(event, "in") + ": " + Str(event, "what"));
  }
}

}  // namespace

const rapidjson::Value& Member(const rapidjson::Value& object, const char* name) {
  static const rapidjson::Value kNull;
  if (!object.IsObject()) return kNull;
  const auto it = object.FindMember(name);
  return it == object.MemberEnd() ? kNull : it->value;
}

std::string Compact(const rapidjson::Value& value, std::size_t limit) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  value.Accept(writer);
  std::string out(text.GetString(), text.GetSize());
  if (out.size() <= limit) return out;
  std::size_t cut = limit;
  // Never in the middle of a UTF-8 sequence.
  while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xC0) == 0x80) --cut;
  return out.substr(0, cut) + "...";
}

RoundLog ReadRoundLog(const std::string& path, const RoundPage& round) {
  RoundLog log;
  if (path.empty()) {
    log.note = "kivrun wrote the event log elsewhere (--log " + std::string(kEventLogFile) +
               " in the report folder puts it beside the page)";
    return log;
  }
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    log.note = "there is no event log " + path;
    return log;
  }
  if (std::filesystem::file_size(path, error) > kMaxLogBytes) {
    log.state = RoundLog::State::kTooLarge;
    log.note = path + " is larger than 256 MiB: not read";
    return log;
  }
  std::ifstream in(path, std::ios::binary);
  std::string line;
  int number = 0;
  int end_code = -1;
  bool ended = false;
  std::map<std::string, std::string> last_hash;
  RoundLog read;
  while (std::getline(in, line)) {
    ++number;
    rapidjson::Document event;
    event.Parse(line.data(), line.size());
    if (event.HasParseError() || !event.IsObject() || !Member(event, "t").IsInt64() ||
        !Member(event, "event").IsString() || ended) {
      log.state = RoundLog::State::kDamaged;
      log.note = path + ":" + std::to_string(number) +
                 (ended ? ": an event after the end" : ": not an event of kivrun's log");
      return log;
    }
    const int64_t t = event["t"].GetInt64();
    const std::string kind = event["event"].GetString();
    ++read.events;
    AddToTimeline(kind, event, t, &read);
    if (kind == "file") {
      last_hash[Str(event, "path")] = Str(event, "fnv1a64");
      read.last_write[Str(event, "path")] = t;
    } else if (kind == "camera_settings" && read.plane_answer_t < 0) {
      ApplyCameraSettings(Member(event, "settings"), &read);
    } else if (kind == "responder" && Str(event, "node") == "plane") {
      read.plane_needs.clear();
      const rapidjson::Value& needs = Member(event, "needs");
      if (needs.IsArray()) {
        for (const auto& need : needs.GetArray()) {
          if (need.IsString()) read.plane_needs.push_back(need.GetString());
        }
      }
    } else if (kind == "answer") {
      const std::string node = Str(event, "node");
      if (node == "plane") read.plane_answer_t = t;
      auto& a = read.answers.GetAllocator();
      rapidjson::Value copy(event, a);
      const auto it = read.answers.FindMember(node.c_str());
      if (it != read.answers.MemberEnd()) {
        it->value = copy;
      } else {
        read.answers.AddMember(rapidjson::Value(node.c_str(), a), copy, a);
      }
    } else if (kind == "end") {
      ended = true;
      const rapidjson::Value& exit = Member(event, "exit");
      end_code = exit.IsInt() ? exit.GetInt() : -1;
    }
  }
  if (!ended) {
    log.state = RoundLog::State::kDamaged;
    log.note = path + " ends before the round's end event: cut short";
    return log;
  }
  if (end_code != round.exit_code) {
    log.state = RoundLog::State::kOtherRound;
    log.note = path + " is another round's: it ended with exit code " + std::to_string(end_code) +
               ", this round with " + std::to_string(round.exit_code);
    return log;
  }
  for (const PagePicture& picture : round.pictures) {
    if (picture.version != 0) continue;
    const auto it = last_hash.find(picture.path);
    if (it == last_hash.end() || it->second != picture.hash) {
      log.state = RoundLog::State::kOtherRound;
      log.note = path + " is another round's: " +
                 (it == last_hash.end() ? "it has no picture " + picture.path
                                        : "its " + picture.path + " has another hash");
      return log;
    }
  }
  read.state = RoundLog::State::kRead;
  read.note = path;
  return read;
}

}  // namespace reportpage
