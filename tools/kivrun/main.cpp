// kivrun: plays a scenario against the calibration node on a PC.
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/sandbox/node_tmp.h"
#include "platform/sandbox/private_tmp.h"
#include "tools/command_line.h"
#include "tools/kivrun/chessboard_folder.h"
#include "tools/kivrun/kivrun_command_line.h"
#include "tools/kivrun/output_file.h"
#include "tools/kivrun/picture_option.h"
#include "tools/kivrun/progress.h"
#include "tools/kivrun/replay.h"
#include "tools/kivrun/round_folder.h"
#include "tools/kivrun/runner.h"
#include "tools/kivrun/scenario.h"
#include "tools/kivrun/usage.h"
#include "tools/version.h"

namespace {

// Where kivrun finds its plug-ins: in its build folder the ones built with
// it, anywhere else the ones installed beside it (KIVRUN_INSTALLED_PLUGINS,
// relative to the folder kivrun is in).
void FindPlugins(kivrun::Options* options) {
  char self[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
  const std::string path = length > 0 ? std::string(self, static_cast<size_t>(length)) : "";
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  if (length <= 0 || folder == KIVRUN_BUILD_FOLDER "/") {
    options->built_plugins = {{"liblasercali.so", KIVRUN_BUILT_PLUGIN},
                              {"liblasercalc.so", KIVRUN_BUILT_CALC_PLUGIN}};
  } else {
    options->plugin_folder = folder + KIVRUN_INSTALLED_PLUGINS;
  }
}

int UsageError(const std::string& message) {
  toolcli::ReportUsageError(std::cerr, "kivrun", message);
  return kivrun::kUsageError;
}

// An output kivrun cannot write: not a usage mistake, but the same exit code.
int CannotWrite(const std::string& what, const std::string& reason) {
  std::cerr << "kivrun: cannot write " << what << ": " << reason << "\n";
  return kivrun::kUsageError;
}

// After --help or --version: 0 when all of it reached standard output.
int StdoutWritten() {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout && !std::ferror(stdout)) return kivrun::kOk;
  return CannotWrite("standard output", std::strerror(errno));
}

}  // namespace

int main(int argc, char** argv) {
  kivrun::CommandLineRequest request;
  try {
    request = kivrun::ReadCommandLine(std::vector<std::string>(argv, argv + argc));
  } catch (const toolcli::UsageError& e) {
    return UsageError(e.what());
  }
  if (request.action == kivrun::CommandLineRequest::Action::kHelp) {
    std::cout << kivrun::kUsage;
    return StdoutWritten();
  }
  if (request.action == kivrun::CommandLineRequest::Action::kVersion) {
    toolcli::PrintVersion(std::cout, "kivrun");
    return StdoutWritten();
  }
  kivrun::Options options;
  FindPlugins(&options);
  // The first --plugin takes the default's place; the others come after it.
  options.plugins = request.plugins.empty()
                        ? std::vector<std::string>{kivrun::FindPlugin(options, "liblasercali.so")}
                        : request.plugins;
  options.report_dir = request.report_dir;
  options.report_name = request.report_dir;
  options.fold_echo = request.fold_echo;
  options.realtime = request.realtime;
  const std::string& scenario_path = request.scenario_path;
  const std::string& config_path = request.config_path;
  const std::string& replay_path = request.replay_path;
  const std::string& pictures = request.pictures;
  std::string log_path = request.log_path;
  std::string trace_path = request.trace_path;
  std::string pictures_out = request.pictures_out;
  const bool echo = request.echo, machine_tmp = request.machine_tmp;
  const bool log_to_stdout = request.log_to_stdout;
  bool progress = request.progress;

  kivrun::Scenario scenario;
  kivrun::Recording recording;
  try {
    if (!replay_path.empty()) recording = kivrun::ReadRecording(replay_path);
    if (!scenario_path.empty()) scenario = kivrun::LoadScenario(scenario_path);
    if (!config_path.empty()) scenario.config = kivrun::ReadJsonFile(config_path);
    if (scenario.path.empty()) scenario.path = config_path;
    if (!pictures.empty()) kivrun::ShowPictures(pictures, &scenario, std::cerr);
  } catch (const kivrun::ScenarioError& e) {
    std::cerr << "kivrun: " << e.what() << "\n";
    return kivrun::kScenarioError;
  } catch (const kivrun::ChessboardFolderError& e) {
    std::cerr << "kivrun: " << e.what() << "\n";
    return kivrun::kNoFolderCamera;
  }
  // The new log must not take the place of the one it is compared with.
  struct stat replayed = {};
  struct stat written = {};
  if (!replay_path.empty() && !log_path.empty() && stat(replay_path.c_str(), &replayed) == 0 &&
      stat(log_path.c_str(), &written) == 0 && replayed.st_dev == written.st_dev &&
      replayed.st_ino == written.st_ino) {
    return UsageError("--log " + log_path +
                      " is the log being replayed; write the new log elsewhere");
  }

  // On a terminal a person reads the round, not its log: the log and the
  // page go to a folder of the round's.
  std::string round_folder;
  if (replay_path.empty() && !scenario_path.empty() && log_path.empty() && !log_to_stdout &&
      isatty(STDOUT_FILENO) != 0) {
    const int code =
        kivrun::SetUpTerminalRound(scenario_path, machine_tmp, &options, &pictures_out, std::cerr);
    if (code != kivrun::kOk) return code;
    round_folder = options.report_dir;
    log_path = (std::filesystem::path(round_folder) / kivrun::kRoundLog).string();
    progress = true;
  }

  // The new log as the user named it, for messages.
  const std::string log_name = log_path.empty() ? "standard output" : log_path;
  const std::string trace_name = trace_path;
  // Unless told --machine-tmp, the node writes its pictures into a private
  // /tmp, where nobody else's are. Paths the user named under the machine's
  // /tmp still lead there.
  sandbox::PrivateTmp tmp;
  if (!pictures.empty()) tmp.Keep(pictures);
  for (const std::string& folder : recording.pictures) tmp.Keep(folder);
  static_assert(kivrun::kNoPrivateTmp == sandbox::kNoPrivateTmpExit);
  if (!sandbox::EnterNodeTmp("kivrun", machine_tmp, &tmp, std::cerr)) {
    return kivrun::kNoPrivateTmp;
  }
  if (tmp.entered()) {
    // kivrun's own plug-ins lie where kivrun does, which stays in sight.
    for (std::string& plugin : options.plugins) plugin = tmp.Outer(plugin);
    for (std::string& plugin : scenario.plugins) plugin = tmp.Outer(plugin);
    log_path = tmp.Outer(log_path);
    trace_path = tmp.Outer(trace_path);
    options.report_dir = tmp.Outer(options.report_dir);
  }

  // The node's console is redirected into the log while it runs: keep the
  // terminal's streams for kivrun's own output.
  std::ostream terminal_err(std::cerr.rdbuf());
  kivrun::OutputFile standard_output(STDOUT_FILENO);
  std::ostream terminal_out(&standard_output);
  if (echo) options.echo = &terminal_err;
  std::unique_ptr<kivrun::Progress> display;
  // On the wall clock a round takes its time: on a terminal, show how far it got.
  const bool bar = options.realtime && isatty(STDERR_FILENO) != 0;
  if (progress || bar) {
    display = std::make_unique<kivrun::Progress>(terminal_err, bar,
                                                 static_cast<int>(scenario.steps.size()));
    options.progress = display.get();
  }

  // Every output is checked when it is closed: a full disk is an error too.
  std::unique_ptr<kivrun::OutputFile> trace_buffer;
  std::unique_ptr<std::ostream> trace_file;
  if (!trace_path.empty()) {
    trace_buffer = std::make_unique<kivrun::OutputFile>(trace_path);
    if (!trace_buffer->ok()) return CannotWrite(trace_name, trace_buffer->reason());
    trace_file = std::make_unique<std::ostream>(trace_buffer.get());
    options.trace_times = trace_file.get();
  }
  std::unique_ptr<kivrun::OutputFile> log_buffer;
  std::unique_ptr<std::ostream> log_file;
  std::ostream* log = &terminal_out;
  if (!log_path.empty()) {
    log_buffer = std::make_unique<kivrun::OutputFile>(log_path);
    if (!log_buffer->ok()) return CannotWrite(log_name, log_buffer->reason());
    log_file = std::make_unique<std::ostream>(log_buffer.get());
    log = log_file.get();
  }
  int code = replay_path.empty()
                 ? kivrun::RunScenario(scenario, options, *log, terminal_err)
                 : kivrun::ReplayRecording(recording, options, *log, log_name, terminal_err);
  const struct {
    kivrun::OutputFile* output;
    std::string name;
  } outputs[] = {{log_buffer.get(), log_name},
                 {trace_buffer.get(), trace_name},
                 {&standard_output, "the event log to standard output"}};
  for (const auto& output : outputs) {
    if (output.output == nullptr || output.output->Close()) continue;
    CannotWrite(output.name, output.output->reason());
    if (code == kivrun::kOk) code = kivrun::kUsageError;
  }
  if (!pictures_out.empty()) {
    int copied = 0;
    std::string reason;
    if (!tmp.CopyFilesTo(pictures_out, &copied, &reason)) {
      std::cerr << "kivrun: --pictures-out: " << reason << "\n";
      return code == kivrun::kOk ? kivrun::kUsageError : code;
    }
    if (progress) terminal_err << "pictures: " << copied << " copied to " << pictures_out << "\n";
  }
  if (!round_folder.empty()) kivrun::SayWhereTheRoundIs(round_folder, terminal_err);
  return code;
}
