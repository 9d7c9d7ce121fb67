#include "tools/kivrun/runner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>

#include "framework/kiv.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/kiv/describe.h"
#include "platform/kiv/host.h"
#include "platform/kiv/plugin.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tools/kivrun/file_watch.h"
#include "tools/kivrun/progress.h"
#include "tools/kivrun/records.h"
#include "tools/kivrun/replay.h"
#include "tools/kivrun/report.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_summary.h"

namespace kivrun {
namespace {

std::string BaseName(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string RecordName(const std::type_info& type) {
  if (type == typeid(KivJsonMsg)) return "KivJsonMsg";
  const RecordLayout* layout = FindRecord(type);
  return layout ? layout->name : std::string("unknown");
}

std::string JsonText(const rapidjson::Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return buffer.GetString();
}

std::string Text(const rapidjson::Value& value) {
  return std::string(value.GetString(), value.GetStringLength());
}

// True when `decoded` has every member of `wanted` with the same value; a
// list in `wanted` matches the leading elements of the decoded array, and
// "text_prefix" a "text" that begins with it.
bool FieldsMatch(const rapidjson::Value& wanted, const rapidjson::Value& decoded) {
  for (const auto& member : wanted.GetObject()) {
    if (Text(member.name) == kTextPrefix) {
      const auto text = decoded.FindMember("text");
      if (text == decoded.MemberEnd() || !text->value.IsString() ||
          Text(text->value).rfind(Text(member.value), 0) != 0) {
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

std::string Seconds(int64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(us) / 1e6);
  return text;
}

// The progress line of a finished "repeat" (with its requests) or "wait" step.
std::string MatchedLine(int64_t now, const std::string& label, bool repeat, int64_t requests,
                        int64_t ticks) {
  std::string line = "[" + Seconds(now) + "] " + label + ": ";
  if (repeat) line += std::to_string(requests) + (requests == 1 ? " request, " : " requests, ");
  return line + "after " + std::to_string(ticks) + (ticks == 1 ? " tick" : " ticks");
}

class Run : public kiv::HostObserver, public sunxi_cam::sim::Observer {
 public:
  Run(const Scenario& scenario, const Options& options, std::ostream& log_stream,
      std::ostream& errors)
      : scenario_(scenario),
        options_(options),
        log_(log_stream),
        errors_(errors),
        echo_(options.fold_echo, [this](const std::string& line) {
          if (options_.progress) {
            options_.progress->Line(line);
          } else {
            *options_.echo << line << '\n';
          }
        }) {}

  // Plays the recorded inputs of `recording` instead of the scenario's
  // steps; every line of the new log goes to `compare` too.
  void SetRecording(const Recording* recording, std::function<void(const std::string&)> compare) {
    recording_ = recording;
    log_.SetAfterWrite(std::move(compare));
  }

  // Returns the round's exit code.
  int Play();
  // Whether the plug-in was loaded.
  bool loaded() const { return loaded_; }
  // Whether a recorded input could not be played again.
  bool replay_failed() const { return replay_failed_; }
  // Whether the report could not be written.
  bool report_failed() const { return report_failed_; }

  // HostObserver
  void OnAdvertise(const std::string& node, const std::string& topic,
                   const std::type_info& type) override;
  void OnSubscribe(const std::string& node, const std::string& topic, const std::type_info& type,
                   int depth) override;
  void OnTimerAdded(int id, const std::string& name, long delay, long period) override;
  void OnTimerDeleted(int id, bool was_running) override;
  void OnVersion(const std::string& node, const std::string& commit_tag,
                 const std::string& framework_tag) override;

  // sunxi_cam::sim::Observer
  void OnOpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height, bool ok,
                    const std::string& reason) override;
  void OnCloseCamera(bool ok, const std::string& reason) override;
  void OnGetImageFrame(bool ok, int64_t index, uint64_t laser, int64_t buffer,
                       const std::string& reason) override;
  void OnReturnImageFrame(bool ok, int64_t index, const std::string& reason) override;
  void OnSetExposureGain(int exposure, int gain, bool ok, const std::string& reason) override;
  void OnBufferLeak(int64_t index, int64_t buffer) override;

 private:
  // A "repeat" or "wait" step in progress: what it waits for, whether it
  // came, and the last publication on the awaited topic that did not match.
  struct Awaiting {
    const Awaited* awaited;
    const rapidjson::Value* fields;  // the awaited fields, parsed
    bool matched = false;
    std::string last;
    int camera_failures = 0;     // camera calls that failed meanwhile
    std::string camera_failure;  // the last of them: the call and its reason
  };

  // A replayed simulated calculation node: how it is set up now, and how
  // many of its recorded answers it has given.
  struct ReplayedNode {
    const ResponderKind* kind = nullptr;
    bool silent = false;
    bool computes = false;  // its answers carry what it computed
    int64_t delay_us = 0;
    std::size_t answered = 0;
  };

  void CameraCall(const char* call, Fields& f, bool ok, const std::string& reason);
  // Counts a failed camera call for the step that waits, if one does.
  void CameraFailed(const char* call, const std::string& reason) {
    if (awaiting_ == nullptr) return;
    ++awaiting_->camera_failures;
    awaiting_->camera_failure = std::string(call) + ": " + reason;
  }
  void WatchPictures();
  void Console(const char* stream, const std::string& line);
  void Exception(const std::string& where, std::exception_ptr error);
  void Published(const std::string& topic, const rapidjson::Value& fields);
  // Runs one step; kOk, or the exit code when the run cannot go on.
  int PlayStep(const Step& step);
  int Fail(const Step& step, int code, const std::string& what);
  // Plays a send or json step; kOk, or the exit code when it cannot be sent.
  int Request(const Step& step);
  void Send(const Step& step);
  const RecordLayout* SendLayout(const Step& step) const;
  void Json(const Step& step);
  int Responder(const Step& step);
  int Await(const Step& step);
  // Moves the main loop on by `us`: at once on the virtual clock, in wall
  // time on the real one (stopping early once `stop` says so).
  void Pass(int64_t us, const std::function<bool()>& stop);
  void RunTicks(int64_t count);
  // Plays the recording's inputs; the round's exit code.
  int PlayRecording();
  // Moves the virtual clock on to `t`, when it is not there yet.
  void AdvanceTo(int64_t t);
  void ReplayResponder(const RecordedEvent& event);
  void ReplayRequest(const std::string& node, const void* request);
  void ReplayAnswer(const std::string& node);
  // Where a step's messages point: "FILE: step N", in a replay "LOG:LINE: step N".
  std::string StepWhere(const Step& step) const;
  // A line of kivrun's own on the terminal, after the echo held back.
  void Show(const std::string& line);
  // The error stream, once the echo held back is out and the bar is gone.
  std::ostream& Errors();
  void Summarise(int code);
  void Teardown();
  double WallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start_).count();
  }
  std::string Tag(const Step& step) const { return "kivrun/step_" + std::to_string(step.number); }

  const Scenario& scenario_;
  const Options& options_;
  EventLog log_;
  std::ostream& errors_;
  EchoFold echo_;
  const Recording* recording_ = nullptr;
  int replay_line_ = 0;  // the recorded line being played
  std::map<std::string, ReplayedNode> replayed_;
  bool loaded_ = false;
  bool replay_failed_ = false;
  bool report_failed_ = false;
  kiv::Host host_;
  std::map<std::string, const RecordLayout*> watched_;  // topic -> record the node publishes
  FileWatch files_;
  bool log_frames_ = false;
  std::unique_ptr<Responders> responders_;
  RoundSummary summary_;
  Awaiting* awaiting_ = nullptr;
  std::chrono::steady_clock::time_point wall_start_ = std::chrono::steady_clock::now();
  // topic -> the record types the node takes there (a node named after a
  // topic takes its JSON commands on it too)
  std::map<std::string, std::vector<const std::type_info*>> subscribed_;
  // Destroyed in reverse: the node, then the builders, then the plug-in they live in.
  std::unique_ptr<kiv::NodeLibrary> library_;
  kiv::NodeRegistry registry_;
  std::unique_ptr<kiv::KivNode> node_;
};

void Run::Console(const char* stream, const std::string& line) {
  Fields f;
  f.Str("stream", stream).Str("text", line);
  log_.Write("console", f.value());
  if (options_.echo) echo_.Add(line);
}

void Run::Show(const std::string& line) {
  echo_.Flush();
  options_.progress->Line(line);
}

std::ostream& Run::Errors() {
  echo_.Flush();
  if (options_.progress) options_.progress->Interrupt();
  return errors_;
}

void Run::Published(const std::string& topic, const rapidjson::Value& fields) {
  summary_.Published(topic, fields);
  if (awaiting_ == nullptr || awaiting_->matched || topic != awaiting_->awaited->topic) return;
  if (FieldsMatch(*awaiting_->fields, fields)) {
    awaiting_->matched = true;
  } else {
    awaiting_->last = JsonText(fields);
  }
}

void Run::Exception(const std::string& where, std::exception_ptr error) {
  const kiv::ExceptionInfo info = kiv::DescribeException(error);
  Fields f;
  f.Str("in", where).Str("type", info.type).Str("what", info.what);
  log_.Write("exception", f.value());
}

void Run::OnAdvertise(const std::string& node, const std::string& topic,
                      const std::type_info& type) {
  Fields f;
  f.Str("node", node).Str("topic", topic).Str("record", RecordName(type));
  log_.Write("advertise", f.value());
  const RecordLayout* layout = FindRecord(type);
  if (layout == nullptr || !watched_.emplace(topic, layout).second) return;
  layout->watch(host_, "kivrun", topic, [this, layout, topic](const void* record) {
    const auto& stack = kiv::KivProcTimeRec::m_pInstance->m_publishInfo;
    Fields p;
    p.Str("topic", topic)
        .Str("tag", stack.empty() ? std::string() : stack.back())
        .Str("record", layout->name);
    rapidjson::Value fields(rapidjson::kObjectType);
    DecodeFields(*layout, record, fields, p.allocator());
    p.value().AddMember("fields", fields, p.allocator());
    // Written first: writing an event reports the pictures written before
    // it, so the summary sees a picture before the reply about it.
    log_.Write("publish", p.value());
    Published(topic, p.value()["fields"]);
  });
}

void Run::OnSubscribe(const std::string& node, const std::string& topic, const std::type_info& type,
                      int depth) {
  auto& types = subscribed_[topic];
  if (std::find(types.begin(), types.end(), &type) == types.end()) types.push_back(&type);
  Fields f;
  f.Str("node", node).Str("topic", topic).Str("record", RecordName(type)).Int("depth", depth);
  log_.Write("subscribe", f.value());
}

void Run::OnTimerAdded(int id, const std::string& name, long delay, long period) {
  Fields f;
  f.Int("id", id).Str("name", name).Int("delay_us", delay).Int("period_us", period);
  log_.Write("timer_add", f.value());
}

void Run::OnTimerDeleted(int id, bool was_running) {
  Fields f;
  f.Int("id", id).Bool("running", was_running);
  log_.Write("timer_del", f.value());
}

void Run::OnVersion(const std::string& node, const std::string& commit_tag,
                    const std::string& framework_tag) {
  Fields f;
  f.Str("node", node).Str("commit", commit_tag).Str("framework", framework_tag);
  log_.Write("version", f.value());
}

void Run::CameraCall(const char* call, Fields& f, bool ok, const std::string& reason) {
  Fields e;
  e.Str("call", call);
  for (auto& member : f.value().GetObject()) {
    e.value().AddMember(rapidjson::Value(member.name, e.allocator()),
                        rapidjson::Value(member.value, e.allocator()), e.allocator());
  }
  e.Bool("ok", ok);
  if (!ok) e.Str("reason", reason);
  log_.Write("camera", e.value());
  if (!ok) CameraFailed(call, reason);
}

void Run::OnOpenCamera(int camera, uint32_t pixel_format, int fps, int width, int height, bool ok,
                       const std::string& reason) {
  std::string format;
  for (int i = 0; i < 4; ++i) format.push_back(static_cast<char>((pixel_format >> (8 * i)) & 0xFF));
  Fields f;
  f.Int("camera", camera)
      .Str("format", format)
      .Int("fps", fps)
      .Int("width", width)
      .Int("height", height);
  CameraCall("OpenCamera", f, ok, reason);
}

void Run::OnCloseCamera(bool ok, const std::string& reason) {
  Fields f;
  CameraCall("CloseCamera", f, ok, reason);
}

void Run::OnGetImageFrame(bool ok, int64_t index, uint64_t laser, int64_t buffer,
                          const std::string& reason) {
  if (!ok && !log_frames_) CameraFailed("GetImageFrame", reason);  // logged or not
  if (!log_frames_) return;
  Fields f;
  if (ok) f.Int("index", index).Int("laser", static_cast<int64_t>(laser)).Int("buffer", buffer);
  CameraCall("GetImageFrame", f, ok, reason);
}

void Run::OnReturnImageFrame(bool ok, int64_t index, const std::string& reason) {
  Fields f;
  f.Int("index", index);
  CameraCall("ReturnImageFrame", f, ok, reason);
}

void Run::OnSetExposureGain(int exposure, int gain, bool ok, const std::string& reason) {
  Fields f;
  f.Int("exposure", exposure).Int("gain", gain);
  CameraCall("setExposureGain", f, ok, reason);
}

void Run::OnBufferLeak(int64_t index, int64_t buffer) {
  Fields f;
  f.Int("index", index).Int("buffer", buffer);
  log_.Write("buffer_leak", f.value());
}

// The picture folders exist once the node is built; /tmp itself only for
// the stripe pictures.
void Run::WatchPictures() {
  for (const char* folder : {"/tmp/left", "/tmp/right", "/tmp/pic"}) files_.Add(folder);
  files_.Add("/tmp", {"LL.bmp", "RR.bmp"});
  log_.SetBeforeWrite([this] {
    files_.Poll([this](const WrittenFile& file) {
      Fields f;
      f.Str("path", file.path).Int("size", file.size).Str("fnv1a64", file.hash);
      log_.Write("file", f.value());
      summary_.Written(file.path, file.size, file.hash);
    });
  });
}

int Run::Play() {
  // The report shows every version of the stripe pictures: keep them.
  if (!options_.report_dir.empty()) summary_.KeepVersions();
  log_.SetClock([this] { return host_.Loop().Now(); });
  host_.SetObserver(this);
  host_.Loop().SetExceptionHandler([this](const std::string& timer, std::exception_ptr error) {
    Exception("timer " + timer, error);
  });
  kiv::KivProcTimeRec& recorder = *kiv::KivProcTimeRec::m_pInstance;
  recorder.m_bEnable = true;
  recorder.m_pOutput = options_.trace_times;
  sunxi_cam::sim::Reset();
  sunxi_cam::sim::SetObserver(this);

  int code = kOk;
  {
    ConsoleTap out(std::cout, [this](const std::string& line) { Console("stdout", line); });
    ConsoleTap err(std::cerr, [this](const std::string& line) { Console("stderr", line); });
    try {
      if (options_.realtime) {
        // A replay cannot put the ticks of the wall clock back where they fell.
        Fields clock;
        clock.Str("source", "wall");
        log_.Write(kClockEvent, clock.value());
      }
      library_ = kiv::NodeLibrary::Load(options_.plugin, registry_);
      loaded_ = true;
      Fields f;
      f.Str("plugin", BaseName(options_.plugin));
      rapidjson::Value ids(rapidjson::kArrayType);
      for (const auto& entry : registry_) {
        ids.PushBack(rapidjson::Value(entry.first.c_str(), f.allocator()), f.allocator());
      }
      f.value().AddMember("ids", ids, f.allocator());
      log_.Write("load", f.value());

      const rapidjson::Value empty(rapidjson::kObjectType);
      const rapidjson::Value& config = scenario_.config ? *scenario_.config : empty;
      Fields b;
      b.Str("node", scenario_.node_id).Json("config", config);
      log_.Write("build", b.value());
      try {
        node_ = kiv::BuildNode(registry_, scenario_.node_id, config);
      } catch (const kiv::LoadError&) {
        throw;
      } catch (...) {
        Exception("builder", std::current_exception());
        Errors() << "kivrun: the node " << scenario_.node_id
                 << " could not be built: " << kiv::DescribeException(std::current_exception()).what
                 << "\n";
        code = kNodeError;
      }
      if (!node_ && code == kOk) {
        const std::string what = "the builder of " + scenario_.node_id + " returned no node";
        Fields f;
        f.Str("what", what);
        log_.Write("error", f.value());
        Errors() << "kivrun: " << what << "\n";
        code = kNodeError;
      }
      if (node_) {
        Fields built;
        built.Str("node", scenario_.node_id).Str("name", node_->NodeName());
        log_.Write("built", built.value());
        WatchPictures();
        // The simulated calculation nodes number the factory pictures with
        // the node's "delt_factory"; another node, without one, gets 0.
        int delt_factory = 0;
        if (config.IsObject()) {
          const auto delt = config.FindMember("delt_factory");
          if (delt != config.MemberEnd() && delt->value.IsInt())
            delt_factory = delt->value.GetInt();
        }
        responders_ = std::make_unique<Responders>(host_, log_, delt_factory);
        responders_->SetOnAnswer(
            [this](const std::string& node, const std::string& action,
                   const rapidjson::Value& answer) { summary_.Answered(node, action, answer); });
        responders_->SetOnComputed([this](const std::string& node, const rapidjson::Value& answer) {
          summary_.Computed(node, answer);
        });
        if (recording_) {
          code = PlayRecording();
        } else {
          for (const Step& step : scenario_.steps) {
            code = PlayStep(step);
            if (code != kOk) break;
          }
        }
        Teardown();
      }
    } catch (const kiv::LoadError& e) {
      Fields f;
      f.Str("what", e.what());
      log_.Write("error", f.value());
      Errors() << "kivrun: " << e.what() << "\n";
      code = kNodeError;
    }
    out.FlushPartial();
    err.FlushPartial();
    echo_.Flush();
    // Builders and timer callbacks live in the plug-in: drop them before
    // the plug-in goes. (The node leaves its frame timer running when it is
    // destroyed with the camera open.)
    host_.Loop().Clear();
    registry_.clear();
    library_.reset();
  }
  recorder.m_pOutput = nullptr;
  host_.SetObserver(nullptr);
  sunxi_cam::sim::SetObserver(nullptr);
  log_.SetBeforeWrite(nullptr);
  Fields end;
  end.Int("exit", code);
  log_.Write("end", end.value());
  log_.Flush();
  Summarise(code);
  if (!options_.report_dir.empty()) {
    ReportInput report;
    report.scenario = scenario_.path;
    report.description = scenario_.description;
    report.exit_code = code;
    report.summary = summary_.Rows(host_.Loop().Now(), WallSeconds());
    report.pictures = summary_.ReportPictures();
    report.versions_not_kept = summary_.VersionsNotKept();
    report.problems = summary_.Problems();
    // Messages name the folder as the user did, not as a private /tmp
    // reaches it.
    const std::string& name =
        options_.report_name.empty() ? options_.report_dir : options_.report_name;
    try {
      WriteReport(options_.report_dir, report);
      Errors() << "kivrun: report written to " << name << "/" << kReportSummary << " and "
               << kReportSheet << "\n";
    } catch (const std::exception& e) {
      std::string what = e.what();
      const std::size_t at = what.find(options_.report_dir);
      if (at != std::string::npos) what.replace(at, options_.report_dir.size(), name);
      Errors() << "kivrun: " << what << "\n";
      report_failed_ = true;
      if (code == kOk) code = kUsageError;
    }
  }
  return code;
}

void Run::Summarise(int code) {
  if (!options_.progress) return;
  echo_.Flush();
  Progress& progress = *options_.progress;
  progress.Finish();
  progress.Line(code == kOk ? "== the round ran to its end"
                            : "== the round stopped (exit " + std::to_string(code) + ")");
  for (const auto& [figure, value] : summary_.Rows(host_.Loop().Now(), WallSeconds())) {
    std::string padded = figure + ":";
    padded.resize(32, ' ');
    progress.Line(padded + value);
  }
  for (const ReportPicture& picture : summary_.Pictures()) {
    progress.Line("  " + picture.path + "  (" + picture.label + ")");
  }
}

std::string Run::StepWhere(const Step& step) const {
  return scenario_.path + (recording_ ? ":" + std::to_string(replay_line_) : std::string()) +
         ": step " + std::to_string(step.number);
}

int Run::Fail(const Step& step, int code, const std::string& what) {
  const std::string message = StepWhere(step) + ": " + what;
  Fields f;
  f.Int("step", step.number).Str("what", message);
  log_.Write("error", f.value());
  Errors() << "kivrun: " << message << "\n";
  return code;
}

int Run::PlayStep(const Step& step) {
  if (options_.progress) {
    options_.progress->Step(step.number,
                            step.kind == Step::Kind::kRepeat || step.kind == Step::Kind::kWait
                                ? (step.text.empty() ? step.until.Describe() : step.text)
                                : std::string());
  }
  switch (step.kind) {
    case Step::Kind::kSend:
    case Step::Kind::kJson:
      return node_ ? Request(step) : kOk;
    case Step::Kind::kAdvance: {
      Fields f;
      f.Int("step", step.number).Int("us", step.amount);
      log_.Write("advance", f.value());
      Pass(step.amount, nullptr);
      break;
    }
    case Step::Kind::kTicks: {
      Fields f;
      f.Int("step", step.number).Int("ticks", step.amount);
      log_.Write("ticks", f.value());
      RunTicks(step.amount);
      break;
    }
    case Step::Kind::kTrace: {
      kiv::KivProcTimeRec::m_pInstance->m_bEnable = step.flag;
      Fields f;
      f.Int("step", step.number).Bool("on", step.flag);
      log_.Write("trace", f.value());
      break;
    }
    case Step::Kind::kTeardown:
      Teardown();
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
      log_.Write("camera_settings", f.value());
      break;
    }
    case Step::Kind::kLogFrames: {
      log_frames_ = step.flag;
      Fields f;
      f.Int("step", step.number).Bool("on", step.flag);
      log_.Write("log_frames", f.value());
      break;
    }
    case Step::Kind::kNote: {
      Fields f;
      f.Int("step", step.number).Str("text", step.text);
      log_.Write("note", f.value());
      break;
    }
    case Step::Kind::kResponder:
      return Responder(step);
    case Step::Kind::kRepeat:
    case Step::Kind::kWait:
      return node_ ? Await(step) : kOk;
  }
  return kOk;
}

int Run::Request(const Step& step) {
  if (step.kind == Step::Kind::kJson) {
    Json(step);
    return kOk;
  }
  try {
    Send(step);
  } catch (const ScenarioError& e) {
    Fields f;
    f.Int("step", step.number).Str("what", e.what());
    log_.Write("error", f.value());
    Errors() << "kivrun: " << e.what() << "\n";
    return kScenarioError;
  }
  return kOk;
}

int Run::Responder(const Step& step) {
  try {
    responders_->Configure(*step.responder);
  } catch (const std::invalid_argument& e) {
    return Fail(step, kScenarioError, e.what());
  }
  return kOk;
}

int Run::Await(const Step& step) {
  const Awaited& awaited = step.until;
  if (watched_.count(awaited.topic) == 0) {
    return Fail(step, kScenarioError, "the node does not publish on \"" + awaited.topic + "\"");
  }
  // The awaited fields must fit the record the node publishes there.
  const RecordLayout& layout = *watched_.at(awaited.topic);
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
      for (int64_t i = 0; i < step.every_ticks && !awaiting.matched && node_; ++i, ++ticks) {
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
  log_.Write("matched", f.value());
  if (options_.progress) {
    Show(MatchedLine(host_.Loop().Now(), label, step.kind == Step::Kind::kRepeat, requests, ticks));
  }
  return kOk;
}

void Run::Pass(int64_t us, const std::function<bool()>& stop) {
  kiv::MainLoop& loop = host_.Loop();
  if (!options_.realtime) {
    loop.Advance(us);
    if (options_.progress) options_.progress->Clock(loop.Now());
    return;
  }
  loop.RunRealtime(us, [&] {
    if (options_.progress) options_.progress->Clock(loop.Now());
    return stop && stop();
  });
}

void Run::RunTicks(int64_t count) {
  kiv::MainLoop& loop = host_.Loop();
  if (!options_.realtime) {
    loop.RunTicks(count);
    if (options_.progress) options_.progress->Clock(loop.Now());
    return;
  }
  // In slices of one tick period, until `count` callbacks ran or no timer is left.
  int64_t ran = 0;
  while (ran < count && loop.TimerCount() > 0) {
    loop.RunRealtime(kTickUs, [&] {
      if (options_.progress) options_.progress->Clock(loop.Now());
      return ++ran >= count;
    });
  }
}

// The record layout a send step sends: the one it names, else the one the
// node takes on the topic.
const RecordLayout* Run::SendLayout(const Step& step) const {
  const std::string where = StepWhere(step) + ": ";
  if (!step.record.empty()) {
    const RecordLayout* layout = FindRecord(step.record);
    if (layout == nullptr) {
      throw ScenarioError(where + "unknown record type \"" + step.record +
                          "\" (known: " + KnownRecordNames() + ")");
    }
    return layout;
  }
  const auto found = subscribed_.find(step.topic);
  if (found == subscribed_.end()) {
    throw ScenarioError(where + "the node does not subscribe to \"" + step.topic +
                        "\"; name the record type with \"record\" to send anyway");
  }
  std::string names;
  for (const std::type_info* type : found->second) {
    names += (names.empty() ? "" : ", ") + RecordName(*type);
  }
  if (found->second.size() > 1) {
    // A node named after a topic it subscribes to takes its JSON commands there too.
    throw ScenarioError(where + "the node takes several record types on \"" + step.topic + "\" (" +
                        names + "); name the one to send with \"record\"");
  }
  const RecordLayout* layout = FindRecord(*found->second.front());
  if (layout == nullptr) {
    throw ScenarioError(where + "the node takes " + names + " on \"" + step.topic +
                        "\", which a send step cannot fill; use a \"json\" step");
  }
  return layout;
}

void Run::Send(const Step& step) {
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
  summary_.Sent(step.topic);
  if ((step.topic == calitopics::kCameraCali || step.topic == calitopics::kLaserCalibration) &&
      fields.HasMember("distance")) {
    summary_.Requested(static_cast<uint16_t>(fields["distance"].GetInt()),
                       step.topic == calitopics::kLaserCalibration);
  }
  f.value().AddMember("fields", fields, f.allocator());
  log_.Write("send", f.value());
  try {
    layout->publish(host_.FindTopic(step.topic), step.topic, record.get(), Tag(step));
  } catch (...) {
    Exception("delivery of step " + std::to_string(step.number), std::current_exception());
  }
}

void Run::Json(const Step& step) {
  const std::string topic = node_->NodeName();
  const rapidjson::Document command = step.value.Parse();
  const bool has_command = step.value.present();
  Fields f;
  f.Int("step", step.number).Str("topic", topic);
  if (has_command) {
    f.Json("command", command);
  } else {
    f.value().AddMember("command", rapidjson::Value(), f.allocator());
  }
  log_.Write("json", f.value());
  summary_.Sent("JSON command");
  if (has_command) {
    for (const char* key : {"distance", "APP"}) {
      if (command.HasMember(key) && command[key].IsInt64()) {
        summary_.Requested(static_cast<uint16_t>(command[key].GetInt64()), key[0] == 'A');
      }
    }
  }

  kiv::Publisher<KivJsonMsg> publisher(host_.FindTopic(topic), topic);
  KivJsonMsg message;
  if (has_command) message.command.CopyFrom(command, message.command.GetAllocator());
  try {
    publisher.publishWithLine(has_command ? &message : nullptr, Tag(step));
  } catch (...) {
    Exception("delivery of step " + std::to_string(step.number), std::current_exception());
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
  log_.Write("json_reply", reply.value());
}

void Run::AdvanceTo(int64_t t) {
  const int64_t now = host_.Loop().Now();
  if (t > now) Pass(t - now, nullptr);
}

int Run::PlayRecording() {
  int code = kOk;
  for (const RecordedEvent& event : recording_->inputs) {
    AdvanceTo(event.t);
    replay_line_ = event.line;
    if (event.kind == "teardown") {
      Teardown();
    } else if (event.kind == "responder") {
      ReplayResponder(event);
    } else if (event.kind == "matched" || event.kind == "error") {
      // The recorded run's own verdicts: a step got what it waited for, or
      // the run stopped here.
      const rapidjson::Document members = ParseRecorded(event.members);
      log_.Write(event.kind.c_str(), members);
      if (event.kind == "error") {
        code = recording_->end_code;
      } else if (options_.progress) {
        const auto requests = members.FindMember("requests");
        Show(MatchedLine(host_.Loop().Now(), Text(members["label"]),
                         requests != members.MemberEnd(),
                         requests != members.MemberEnd() ? requests->value.GetInt64() : 0,
                         members["ticks"].GetInt64()));
      }
    } else {
      const int played = PlayStep(event.step);
      if (played != kOk) {
        replay_failed_ = true;
        return played;
      }
    }
  }
  return code;
}

void Run::ReplayResponder(const RecordedEvent& event) {
  const rapidjson::Document members = ParseRecorded(event.members);
  log_.Write("responder", members);
  const std::string node = Text(members["node"]);
  const auto [it, first] = replayed_.try_emplace(node);
  ReplayedNode& replayed = it->second;
  for (const ResponderKind& kind : ResponderKinds()) {
    if (node == kind.node) replayed.kind = &kind;
  }
  replayed.silent = Text(members["mode"]) == "silent";
  replayed.computes = Text(members["mode"]) == "compute";
  replayed.delay_us = members["delay_us"].GetInt64();
  if (!first) return;
  FindRecord(replayed.kind->request)
      ->watch(host_, node, replayed.kind->listens,
              [this, node](const void* request) { ReplayRequest(node, request); });
}

void Run::ReplayRequest(const std::string& node, const void* request) {
  const ReplayedNode& replayed = replayed_.at(node);
  if (!TakesRequest(*replayed.kind, request)) return;
  if (replayed.silent) {
    Fields f;
    f.Str("node", node).Str("topic", replayed.kind->listens);
    log_.Write("silent", f.value());
    return;
  }
  host_.Loop().AddTimer([this, node] { ReplayAnswer(node); }, replayed.delay_us, 0,
                        "kivrun/" + node);
}

void Run::ReplayAnswer(const std::string& node) {
  ReplayedNode& replayed = replayed_.at(node);
  const auto answers = recording_->answers.find(node);
  // Asked more often than in the recording: there is no answer to give.
  if (answers == recording_->answers.end() || replayed.answered >= answers->second.size()) return;
  const RecordedEvent& answer = answers->second[replayed.answered++];
  const rapidjson::Document members = ParseRecorded(answer.members);
  log_.Write("answer", members);
  const RecordLayout& layout = *FindRecord(Text(members["record"]));
  std::shared_ptr<void> record = layout.make();
  EncodeFields(layout, members["fields"], record.get());
  const std::string topic = Text(members["topic"]);
  layout.publish(host_.FindTopic(topic), topic, record.get(), "kivrun/" + node);
  summary_.Answered(node, Text(members["action"]), members);
  if (replayed.computes) summary_.Computed(node, members);
}

void Run::Teardown() {
  if (!node_) return;
  Fields f;
  f.Str("name", node_->NodeName());
  node_.reset();
  log_.Write("teardown", f.value());
}

}  // namespace

int ReplayRecording(const Recording& recording, const Options& options, std::ostream& log_stream,
                    const std::string& log_name, std::ostream& errors) {
  Scenario scenario;
  scenario.path = recording.path;
  scenario.description = "A replay of " + recording.path + ".";
  scenario.node_id = recording.node_id;
  scenario.config = std::make_shared<rapidjson::Document>(ParseRecorded(recording.config));
  LogComparison comparison(recording);
  bool loaded = false, failed = false, report_failed = false;
  try {
    Run run(scenario, options, log_stream, errors);
    run.SetRecording(&recording, [&comparison](const std::string& line) { comparison.Add(line); });
    run.Play();
    loaded = run.loaded();
    failed = run.replay_failed();
    report_failed = run.report_failed();
  } catch (const ScenarioError& e) {
    errors << "kivrun: " << e.what() << "\n";
    return kScenarioError;
  }
  if (!loaded) return kNodeError;
  if (!comparison.Same()) {
    errors << "kivrun: " << comparison.Report(log_name);
    return failed ? kScenarioError : kReplayDiffers;
  }
  if (failed) return kScenarioError;
  if (!recording.commit_tag.empty() && !recording.HasPlaceholderTags() &&
      (recording.commit_tag != comparison.commit_tag() ||
       recording.framework_tag != comparison.framework_tag())) {
    errors << "kivrun: note: " << recording.path << " was recorded with version tags "
           << recording.commit_tag << " and " << recording.framework_tag
           << "; this plug-in registers " << comparison.commit_tag() << " and "
           << comparison.framework_tag() << " (version tags are not compared)\n";
  }
  errors << "kivrun: the replay of " << recording.path << " gave the same " << comparison.count()
         << " events\n";
  return report_failed ? kUsageError : kOk;
}

int RunScenario(const Scenario& scenario, const Options& options, std::ostream& log_stream,
                std::ostream& errors) {
  try {
    Run run(scenario, options, log_stream, errors);
    return run.Play();
  } catch (const ScenarioError& e) {
    errors << "kivrun: " << e.what() << "\n";
    return kScenarioError;
  }
}

}  // namespace kivrun
