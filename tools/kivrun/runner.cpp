#include "tools/kivrun/runner.h"

#include <iostream>
#include <memory>

#include "framework/kiv.h"
#include "platform/kiv/describe.h"
#include "platform/kiv/host.h"
#include "platform/kiv/plugin.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tools/kivrun/answer_watch.h"
#include "tools/kivrun/calc_plugin_nodes.h"
#include "tools/kivrun/camera_watch.h"
#include "tools/kivrun/node_watch.h"
#include "tools/kivrun/progress.h"
#include "tools/kivrun/replay_player.h"
#include "tools/kivrun/report.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"
#include "tools/kivrun/step_player.h"

namespace kivrun {
namespace {

std::string BaseName(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// One round: loads the plug-in, builds the node, plays the scenario's steps
// (or a recording's inputs), tears the node down, and sums the round up.
class Run {
 public:
  Run(const Scenario& scenario, const Options& options, std::ostream& log_stream,
      std::ostream& errors)
      : scenario_(scenario),
        round_(options, log_stream, errors),
        node_watch_(round_),
        camera_watch_(round_),
        steps_(round_, node_watch_, camera_watch_, scenario.path),
        answer_watch_(round_),
        calc_nodes_(round_, node_watch_) {
    calc_nodes_.SetCameraModel(scenario.camera_model);
    calc_nodes_.SetChessboard(scenario.chessboard);
  }

  // Plays the recorded inputs of `recording` instead of the scenario's
  // steps; every line of the new log goes to `compare` too.
  void SetRecording(const Recording* recording, std::function<void(const std::string&)> compare) {
    recording_ = recording;
    round_.log.SetAfterWrite(std::move(compare));
  }

  // Returns the round's exit code.
  int Play();
  // Whether the plug-in was loaded.
  bool loaded() const { return loaded_; }
  // Whether a recorded input could not be played again.
  bool replay_failed() const { return replay_failed_; }
  // Whether the report could not be written.
  bool report_failed() const { return report_failed_; }

 private:
  // Loads the plug-ins and builds the nodes; kOk, or the exit code.
  int Build();
  // Builds one node, with its "build" and "built" events; null (after
  // saying why) when its builder threw or gave none.
  std::unique_ptr<kiv::KivNode> BuildNode(const std::string& id, const rapidjson::Value& config);
  int PlaySteps();
  void Summarise(int code);
  void Report(int& code);

  const Scenario& scenario_;
  const Recording* recording_ = nullptr;
  bool loaded_ = false;
  bool replay_failed_ = false;
  bool report_failed_ = false;
  RoundContext round_;
  NodeWatch node_watch_;
  CameraWatch camera_watch_;
  StepPlayer steps_;
  AnswerWatch answer_watch_;
  CalcPluginNodes calc_nodes_;
  std::unique_ptr<Responders> responders_;
  std::vector<std::unique_ptr<kiv::KivNode>> others_;  // the scenario's other nodes
};

int Run::Play() {
  const Options& options = round_.options;
  // The report shows every version of the stripe pictures: keep them.
  if (!options.report_dir.empty()) round_.summary.KeepVersions();
  kiv::Host& host = round_.host;
  round_.log.SetClock([&host] { return host.Loop().Now(); });
  host.SetObserver(&node_watch_);
  host.Loop().SetExceptionHandler([this](const std::string& timer, std::exception_ptr error) {
    round_.Exception("timer " + timer, error);
  });
  kiv::KivProcTimeRec& recorder = *kiv::KivProcTimeRec::m_pInstance;
  recorder.m_bEnable = true;
  recorder.m_pOutput = options.trace_times;
  sunxi_cam::sim::Reset();
  sunxi_cam::sim::SetObserver(&camera_watch_);

  int code = kOk;
  {
    ConsoleTap out(std::cout, [this](const std::string& line) { round_.Console("stdout", line); });
    ConsoleTap err(std::cerr, [this](const std::string& line) { round_.Console("stderr", line); });
    try {
      if (options.realtime) {
        // A replay cannot put the ticks of the wall clock back where they fell.
        Fields clock;
        clock.Str("source", "wall");
        round_.log.Write(kClockEvent, clock.value());
      }
      code = Build();
      if (round_.node) {
        if (code == kOk) code = PlaySteps();
        round_.Teardown();
      }
    } catch (const kiv::LoadError& e) {
      // A plug-in that cannot be loaded, or a node no plug-in registers.
      Fields f;
      f.Str("what", e.what());
      round_.log.Write("error", f.value());
      round_.Errors() << "kivrun: " << e.what() << "\n";
      code = kScenarioError;
      round_.Teardown();  // the node under test, when a later node is the one not registered
    }
    out.FlushPartial();
    err.FlushPartial();
    round_.FlushEcho();
    // Builders and timer callbacks live in the plug-in: drop them before
    // the plug-in goes. (The node leaves its frame timer running when it is
    // destroyed with the camera open.)
    host.Loop().Clear();
    calc_nodes_.Clear();
    others_.clear();
    round_.registry.clear();
    round_.libraries.clear();
  }
  recorder.m_pOutput = nullptr;
  host.SetObserver(nullptr);
  sunxi_cam::sim::SetObserver(nullptr);
  round_.log.SetBeforeWrite(nullptr);
  Fields end;
  end.Int("exit", code);
  round_.log.Write("end", end.value());
  round_.log.Flush();
  Summarise(code);
  if (!options.report_dir.empty()) Report(code);
  return code;
}

int Run::Build() {
  const Options& options = round_.options;
  // Before any node: an answer is logged before the node under test takes it.
  answer_watch_.Start();
  std::vector<std::string> plugins = options.plugins;
  for (const std::string& name : scenario_.plugins) plugins.push_back(FindPlugin(options, name));
  for (const std::string& path : plugins) {
    const kiv::NodeRegistry before = round_.registry;
    round_.libraries.push_back(kiv::NodeLibrary::Load(path, round_.registry));
    loaded_ = true;
    Fields f;
    f.Str("plugin", BaseName(path));
    rapidjson::Value ids(rapidjson::kArrayType);
    for (const auto& entry : round_.registry) {
      if (before.count(entry.first) != 0) continue;
      ids.PushBack(rapidjson::Value(entry.first.c_str(), f.allocator()), f.allocator());
    }
    f.value().AddMember("ids", ids, f.allocator());
    round_.log.Write("load", f.value());
  }

  const rapidjson::Value empty(rapidjson::kObjectType);
  const rapidjson::Value& config = scenario_.config ? *scenario_.config : empty;
  round_.node = BuildNode(scenario_.node_id, config);
  if (!round_.node) return kNodeError;
  camera_watch_.WatchPictures();
  // The round's other nodes: their framework events are theirs.
  for (const OtherNode& other : scenario_.nodes) {
    node_watch_.SetMuted(true);
    std::unique_ptr<kiv::KivNode> node = BuildNode(other.node_id, *other.config);
    node_watch_.SetMuted(false);
    if (!node) return kNodeError;
    node_watch_.MuteTimersNamed(node->NodeName());
    others_.push_back(std::move(node));
  }
  // The simulated calculation nodes number the factory pictures with the
  // node's "delt_factory"; another node, without one, gets 0.
  int delt_factory = 0;
  if (config.IsObject()) {
    const auto delt = config.FindMember("delt_factory");
    if (delt != config.MemberEnd() && delt->value.IsInt()) delt_factory = delt->value.GetInt();
  }
  responders_ = std::make_unique<Responders>(round_.host, round_.log, delt_factory);
  responders_->SetComputingNodes(&calc_nodes_);
  RoundSummary& summary = round_.summary;
  responders_->SetOnAnswer(
      [&summary](const std::string& node, const std::string& action,
                 const rapidjson::Value& answer) { summary.Answered(node, action, answer); });
  steps_.SetResponders(responders_.get());
  return kOk;
}

std::unique_ptr<kiv::KivNode> Run::BuildNode(const std::string& id,
                                             const rapidjson::Value& config) {
  Fields b;
  b.Str("node", id).Json("config", config);
  round_.log.Write("build", b.value());
  std::unique_ptr<kiv::KivNode> node;
  try {
    node = kiv::BuildNode(round_.registry, id, config);
  } catch (const kiv::LoadError&) {
    node_watch_.SetMuted(false);
    throw;
  } catch (...) {
    node_watch_.SetMuted(false);
    round_.Exception("builder", std::current_exception());
    round_.Errors() << "kivrun: the node " << id << " could not be built: "
                    << kiv::DescribeException(std::current_exception()).what << "\n";
    return nullptr;
  }
  if (!node) {
    const std::string what = "the builder of " + id + " returned no node";
    Fields e;
    e.Str("what", what);
    round_.log.Write("error", e.value());
    round_.Errors() << "kivrun: " << what << "\n";
    return nullptr;
  }
  Fields built;
  built.Str("node", id).Str("name", node->NodeName());
  round_.log.Write("built", built.value());
  return node;
}

int Run::PlaySteps() {
  if (recording_) {
    ReplayPlayer replay(round_, steps_, *recording_);
    const int code = replay.Play();
    replay_failed_ = replay.failed();
    return code;
  }
  for (const Step& step : scenario_.steps) {
    const int code = steps_.Play(step);
    if (code != kOk) return code;
  }
  return kOk;
}

void Run::Summarise(int code) {
  const Options& options = round_.options;
  if (!options.progress) return;
  round_.FlushEcho();
  Progress& progress = *options.progress;
  progress.Finish();
  progress.Line(code == kOk ? "== the round ran to its end"
                            : "== the round stopped (exit " + std::to_string(code) + ")");
  for (const auto& [figure, value] :
       round_.summary.Rows(round_.host.Loop().Now(), round_.WallSeconds())) {
    std::string padded = figure + ":";
    padded.resize(32, ' ');
    progress.Line(padded + value);
  }
  for (const ReportPicture& picture : round_.summary.Pictures()) {
    progress.Line("  " + picture.path + "  (" + picture.label + ")");
  }
}

void Run::Report(int& code) {
  const Options& options = round_.options;
  const RoundSummary& summary = round_.summary;
  ReportInput report;
  report.scenario = scenario_.path;
  report.description = scenario_.description;
  report.exit_code = code;
  report.summary = summary.Rows(round_.host.Loop().Now(), round_.WallSeconds());
  report.pictures = summary.ReportPictures();
  report.versions_not_kept = summary.VersionsNotKept();
  report.problems = summary.Problems();
  // Messages name the folder as the user did, not as a private /tmp
  // reaches it.
  const std::string& name = options.report_name.empty() ? options.report_dir : options.report_name;
  try {
    WriteReport(options.report_dir, report);
    round_.Errors() << "kivrun: report written to " << name << "/" << kReportSummary << " and "
                    << kReportSheet << "\n";
  } catch (const std::exception& e) {
    std::string what = e.what();
    const std::size_t at = what.find(options.report_dir);
    if (at != std::string::npos) what.replace(at, options.report_dir.size(), name);
    round_.Errors() << "kivrun: " << what << "\n";
    report_failed_ = true;
    if (code == kOk) code = kUsageError;
  }
}

}  // namespace

std::string FindPlugin(const Options& options, const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const auto built = options.built_plugins.find(name);
  if (built != options.built_plugins.end()) return built->second;
  return options.plugin_folder + "/" + name;
}

int ReplayRecording(const Recording& recording, const Options& options, std::ostream& log_stream,
                    const std::string& log_name, std::ostream& errors) {
  Scenario scenario;
  scenario.path = recording.path;
  scenario.description = "A replay of " + recording.path + ".";
  scenario.node_id = recording.node_id;
  scenario.config = std::make_shared<rapidjson::Document>(ParseRecorded(recording.config));
  // The plug-ins of the options, then the others the recorded round loaded.
  for (const std::string& name : recording.plugins) {
    bool loaded = false;
    for (const std::string& path : options.plugins) loaded = loaded || BaseName(path) == name;
    if (!loaded) scenario.plugins.push_back(name);
  }
  for (const auto& [node, config] : recording.nodes) {
    scenario.nodes.push_back({node, std::make_shared<rapidjson::Document>(ParseRecorded(config))});
  }
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
  if (!loaded) return kScenarioError;
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
