#include "tools/kivrun/step_player.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "framework/kiv.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tools/kivrun/calc_plugin_nodes.h"
#include "tools/kivrun/chessboard_folder.h"
#include "tools/kivrun/json_values.h"
#include "tools/kivrun/records.h"

namespace kivrun {
namespace {

std::string Minified(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

std::string Seconds(int64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(us) / 1e6);
  return text;
}

}  // namespace

bool FieldsMatch(const rapidjson::Value& wanted, const rapidjson::Value& decoded) {
  for (const auto& member : wanted.GetObject()) {
    if (StringOf(member.name) == kTextPrefix) {
      const auto text = decoded.FindMember("text");
      if (text == decoded.MemberEnd() || !text->value.IsString() ||
          StringOf(text->value).rfind(StringOf(member.value), 0) != 0) {
        return false;
      }
      continue;
    }
    auto it = decoded.FindMember(member.name);
    if (it == decoded.MemberEnd()) return false;
    const rapidjson::Value& have = it->value;
    if (member.value.IsArray()) {
      if (!have.IsArray() || have.Size() < member.value.Size()) return false;
      for (rapidjson::SizeType i = 0; i < member.value.Size(); ++i) {
        if (!(member.value[i] == have[i])) return false;
      }
    } else if (!(member.value == have)) {
      return false;
    }
  }
  return true;
}

std::string MatchedLine(int64_t now, const std::string& label, bool repeat, int64_t requests,
                        int64_t ticks) {
  std::string line = "[" + Seconds(now) + "] " + label + ": ";
  if (repeat) line += std::to_string(requests) + (requests == 1 ? " request, " : " requests, ");
  return line + "after " + std::to_string(ticks) + (ticks == 1 ? " tick" : " ticks");
}

StepPlayer::StepPlayer(RoundContext& round, NodeWatch& node_watch, CameraWatch& camera_watch,
                       std::string path)
    : round_(round), node_watch_(node_watch), camera_watch_(camera_watch), path_(std::move(path)) {
  node_watch_.SetOnPublished([this](const std::string& topic, const rapidjson::Value& fields) {
    Published(topic, fields);
  });
  // A camera that keeps failing is told when a step runs out.
  camera_watch_.SetOnFailure([this](const std::string& failure) {
    if (awaiting_ == nullptr) return;
    ++awaiting_->camera_failures;
    awaiting_->camera_failure = failure;
  });
}

void StepPlayer::Published(const std::string& topic, const rapidjson::Value& fields) {
  round_.summary.Published(topic, fields);
  if (awaiting_ == nullptr || awaiting_->matched || topic != awaiting_->awaited->topic) return;
  if (FieldsMatch(*awaiting_->fields, fields)) {
    awaiting_->matched = true;
  } else {
    awaiting_->last = Minified(fields);
  }
}

std::string StepPlayer::StepWhere(const Step& step) const {
  return path_ + (replay_line_ > 0 ? ":" + std::to_string(replay_line_) : std::string()) +
         ": step " + std::to_string(step.number);
}

int StepPlayer::Fail(const Step& step, int code, const std::string& what) {
  const std::string message = StepWhere(step) + ": " + what;
  Fields f;
  f.Int("step", step.number).Str("what", message);
  round_.log.Write("error", f.value());
  round_.Errors() << "kivrun: " << message << "\n";
  return code;
}

int StepPlayer::Play(const Step& step) {
  const Options& options = round_.options;
  if (options.progress) {
    options.progress->Step(step.number,
                           step.kind == Step::Kind::kRepeat || step.kind == Step::Kind::kWait
                               ? (step.text.empty() ? step.until.Describe() : step.text)
                               : std::string());
  }
  EventLog& log = round_.log;
  switch (step.kind) {
    case Step::Kind::kSend:
    case Step::Kind::kJson:
      return round_.node ? Request(step) : kOk;
    case Step::Kind::kAdvance: {
      Fields f;
      f.Int("step", step.number).Int("us", step.amount);
      log.Write("advance", f.value());
      Pass(step.amount, nullptr);
      break;
    }
    case Step::Kind::kTicks: {
      Fields f;
      f.Int("step", step.number).Int("ticks", step.amount);
      log.Write("ticks", f.value());
      RunTicks(step.amount);
      break;
    }
    case Step::Kind::kTrace: {
      kiv::KivProcTimeRec::m_pInstance->m_bEnable = step.flag;
      Fields f;
      f.Int("step", step.number).Bool("on", step.flag);
      log.Write("trace", f.value());
      break;
    }
    case Step::Kind::kTeardown:
      round_.Teardown();
      break;
    case Step::Kind::kCamera: {
      const rapidjson::Document settings = step.value.Parse();
      try {
        sunxi_cam::sim::Configure(settings);
      } catch (const std::invalid_argument& e) {
        return Fail(step, kScenarioError, e.what());
      }
      Fields f;
      f.Int("step", step.number).Json("settings", settings);
      log.Write("camera_settings", f.value());
      break;
    }
    case Step::Kind::kLogFrames: {
      camera_watch_.LogFrames(step.flag);
      Fields f;
      f.Int("step", step.number).Bool("on", step.flag);
      log.Write("log_frames", f.value());
      break;
    }
    case Step::Kind::kNote: {
      Fields f;
      f.Int("step", step.number).Str("text", step.text);
      log.Write("note", f.value());
      break;
    }
    case Step::Kind::kResponder:
      return Responder(step);
    case Step::Kind::kRepeat:
    case Step::Kind::kWait:
      return round_.node ? Await(step) : kOk;
    case Step::Kind::kCameraFromViews:
      return CameraFromViews(step);
  }
  return kOk;
}

int StepPlayer::Request(const Step& step) {
  if (step.kind == Step::Kind::kJson) {
    Json(step);
    return kOk;
  }
  try {
    Send(step);
  } catch (const ScenarioError& e) {
    Fields f;
    f.Int("step", step.number).Str("what", e.what());
    round_.log.Write("error", f.value());
    round_.Errors() << "kivrun: " << e.what() << "\n";
    return kScenarioError;
  }
  return kOk;
}

int StepPlayer::Responder(const Step& step) {
  try {
    responders_->Configure(*step.responder);
  } catch (const std::invalid_argument& e) {
    return Fail(step, kScenarioError, e.what());
  }
  return kOk;
}

int StepPlayer::Await(const Step& step) {
  const Awaited& awaited = step.until;
  const RecordLayout* published = node_watch_.Published(awaited.topic);
  if (published == nullptr) {
    return Fail(step, kScenarioError, "the node does not publish on \"" + awaited.topic + "\"");
  }
  // The awaited fields must fit the record the node publishes there.
  const RecordLayout& layout = *published;
  const rapidjson::Document wanted = awaited.fields.Parse();
  try {
    // "text_prefix" stands for the state text: probe with a text instead.
    rapidjson::Document probe_fields;
    probe_fields.CopyFrom(wanted, probe_fields.GetAllocator());
    const auto prefix = probe_fields.FindMember(kTextPrefix);
    if (prefix != probe_fields.MemberEnd()) {
      if (*layout.type != typeid(kiv_msg_laser_state)) {
        throw std::invalid_argument(std::string("\"") + kTextPrefix +
                                    "\" matches the state text of kiv_msg_laser_state; " +
                                    layout.name + " has no text");
      }
      probe_fields.EraseMember(prefix);
    }
    std::shared_ptr<void> probe = layout.make();
    EncodeFields(layout, probe_fields, probe.get());
  } catch (const std::invalid_argument& e) {
    return Fail(step, kScenarioError, "\"until\" on " + awaited.topic + ": " + e.what());
  }
  const std::string label = step.text.empty() ? awaited.Describe() : step.text;
  Awaiting awaiting{&awaited, &wanted, false, std::string(), 0, std::string()};
  awaiting_ = &awaiting;
  const std::function<bool()> came = [&awaiting] { return awaiting.matched; };
  int64_t requests = 0, ticks = 0;
  if (step.kind == Step::Kind::kRepeat) {
    while (!awaiting.matched && requests < step.limit) {
      ++requests;
      const int code = Request(*step.repeated);
      if (code != kOk) {
        awaiting_ = nullptr;
        return code;
      }
      for (int64_t i = 0; i < step.every_ticks && !awaiting.matched && round_.node; ++i, ++ticks) {
        Pass(kTickUs, came);
      }
    }
  } else {
    for (; ticks < step.limit && !awaiting.matched; ++ticks) Pass(kTickUs, came);
  }
  awaiting_ = nullptr;

  if (!awaiting.matched) {
    std::string what =
        (step.text.empty() ? "" : label + ": ") + "no " + awaited.Describe() + " after ";
    if (step.kind == Step::Kind::kRepeat) what += std::to_string(requests) + " requests, ";
    what += std::to_string(ticks) + " ticks (" + Seconds(ticks * kTickUs) + ")";
    what += awaiting.last.empty() ? "; nothing else came on " + awaited.topic
                                  : "; the last on " + awaited.topic + " was " + awaiting.last;
    // A camera that kept failing is most often why (a picture missing from
    // the --pictures folder, a fault the scenario set): say so.
    if (awaiting.camera_failures > 0) {
      what += "; meanwhile " + std::to_string(awaiting.camera_failures) + " camera call" +
              (awaiting.camera_failures == 1 ? "" : "s") + " failed, the last " +
              awaiting.camera_failure;
    }
    return Fail(step, kNoAnswer, what);
  }
  Fields f;
  f.Int("step", step.number).Str("label", label);
  if (step.kind == Step::Kind::kRepeat) f.Int("requests", requests);
  f.Int("ticks", ticks);
  round_.log.Write("matched", f.value());
  if (round_.options.progress) {
    round_.Show(MatchedLine(round_.host.Loop().Now(), label, step.kind == Step::Kind::kRepeat,
                            requests, ticks));
  }
  return kOk;
}

int StepPlayer::CameraFromViews(const Step& step) {
  const ChessboardFolder& folder = *step.views;
  // "view 05" with its file: "view 05 (DIR/chessboard/05.png)".
  const auto with_file = [&folder](std::string text) {
    const std::size_t at = text.find("view ");
    if (at == std::string::npos) return text;
    std::size_t end = at + 5;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
    const int number = std::atoi(text.c_str() + at + 5);
    if (end == at + 5 || number < 1 || static_cast<std::size_t>(number) > folder.views.size()) {
      return text;
    }
    return text.insert(end, " (" + folder.views[static_cast<std::size_t>(number) - 1] + ")");
  };
  // What the camera parameter node said of the views, and the views it
  // found no board in that it said nothing of (the last of a set).
  std::vector<std::string> said;
  for (const std::string& problem : round_.summary.Problems()) {
    if (problem.rfind("ieparam ", 0) == 0) said.push_back(with_file(problem));
  }
  for (const std::string& view : round_.summary.ViewsWithoutBoard()) {
    bool named = false;
    for (const std::string& line : said)
      named = named || line.find(view + " ") != std::string::npos;
    if (!named) said.push_back(with_file(view + ": no board found in it, the view was left out"));
  }
  std::error_code error;
  if (!std::filesystem::is_regular_file(kCameraModelFile, error)) {
    std::string what = "the chessboard views in " + folder.dir + " gave no camera";
    for (const std::string& line : said) what += "; " + line;
    if (said.empty()) what += ": the camera parameter node wrote no camera model";
    return Fail(step, kNoFolderCamera, what);
  }
  for (const std::string& line : said) {
    round_.Errors() << "kivrun: the camera was measured without a view: " << line << "\n";
  }
  return kOk;
}

void StepPlayer::Pass(int64_t us, const std::function<bool()>& stop) {
  kiv::MainLoop& loop = round_.host.Loop();
  Progress* progress = round_.options.progress;
  if (!round_.options.realtime) {
    loop.Advance(us);
    if (progress) progress->Clock(loop.Now());
    return;
  }
  loop.RunRealtime(us, [&] {
    if (progress) progress->Clock(loop.Now());
    return stop && stop();
  });
}

void StepPlayer::RunTicks(int64_t count) {
  kiv::MainLoop& loop = round_.host.Loop();
  Progress* progress = round_.options.progress;
  if (!round_.options.realtime) {
    loop.RunTicks(count);
    if (progress) progress->Clock(loop.Now());
    return;
  }
  // In slices of one tick period, until `count` callbacks ran or no timer is left.
  int64_t ran = 0;
  while (ran < count && loop.TimerCount() > 0) {
    loop.RunRealtime(kTickUs, [&] {
      if (progress) progress->Clock(loop.Now());
      return ++ran >= count;
    });
  }
}

}  // namespace kivrun
