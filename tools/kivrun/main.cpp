// kivrun: plays a scenario against the calibration node on a PC.
#include <getopt.h>
#include <limits.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
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

// The options, as getopt_long reads them. A long option without a short name
// gets an id above 255.
enum OptionId {
  kHelp = 'h',
  kConfig = 256,
  kPlugin,
  kLog,
  kEcho,
  kTraceTimes,
  kProgress,
  kRealtime,
  kReport,
  kVersion,
  kPrivateTmp,
  kMachineTmp,
  kPicturesOut,
  kReplay,
  kPictures,
};

const std::vector<toolcli::Option> kOptions = {
    {"config", 0, "a file", kConfig},
    {"plugin", 0, "a path", kPlugin},
    {"log", 0, "a file", kLog},
    {"echo", 0, nullptr, kEcho},
    {"trace-times", 0, "a file", kTraceTimes},
    {"progress", 0, nullptr, kProgress},
    {"realtime", 0, nullptr, kRealtime},
    {"report", 0, "a folder", kReport},
    {"help", 'h', nullptr, kHelp},
    {"version", 0, nullptr, kVersion},
    {"private-tmp", 0, nullptr, kPrivateTmp},
    {"machine-tmp", 0, nullptr, kMachineTmp},
    {"pictures-out", 0, "a folder", kPicturesOut},
    {"replay", 0, "an event log", kReplay},
    {"pictures", 0, "a folder", kPictures},
};

// toolcli's options take a value always or never; --echo takes one only in
// the form "--echo=raw". A first pass of getopt_long over the same options,
// with --echo's value optional, finds the arguments "--echo=VALUE" (under
// any prefix that names only --echo): they are put in `args` as "--echo".
// Returns for every --echo, in order, whether it had a value (an empty one
// too) and the value.
std::vector<std::pair<bool, std::string>> TakeEchoValues(std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  std::vector<struct option> longopts;
  for (const toolcli::Option& option : kOptions) {
    const int has_arg = option.id == kEcho  ? optional_argument
                        : option.value_name ? required_argument
                                            : no_argument;
    longopts.push_back({option.name, has_arg, nullptr, option.id});
  }
  longopts.push_back({nullptr, 0, nullptr, 0});
  std::vector<std::pair<bool, std::string>> values;
  std::vector<std::size_t> attached;
  opterr = 0;
  optind = 0;  // start afresh
  const int argc = static_cast<int>(args.size());
  for (int c; (c = getopt_long(argc, argv.data(), "-:h", longopts.data(), nullptr)) != -1;) {
    if (c != kEcho) continue;
    values.emplace_back(optarg != nullptr, optarg != nullptr ? optarg : "");
    if (optarg != nullptr) attached.push_back(static_cast<std::size_t>(optind - 1));
  }
  for (std::size_t index : attached) args[index] = "--echo";
  return values;
}

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
  kivrun::Options options;
  FindPlugins(&options);
  options.plugins = {kivrun::FindPlugin(options, "liblasercali.so")};
  bool plugin_given = false;
  std::string scenario_path, config_path, log_path, trace_path, pictures_out, replay_path;
  std::string pictures;
  bool echo = false, progress = false, private_tmp = false, machine_tmp = false;
  bool log_to_stdout = false;  // --log -

  std::vector<std::string> args(argv, argv + argc);
  const std::vector<std::pair<bool, std::string>> echo_values = TakeEchoValues(args);
  std::size_t echo_count = 0;
  std::vector<char*> arg_pointers;
  for (std::string& arg : args) arg_pointers.push_back(arg.data());
  arg_pointers.push_back(nullptr);
  toolcli::CommandLine command_line(argc, arg_pointers.data(), kOptions);
  try {
    int id = 0;
    std::string value;
    while (command_line.Next(&id, &value)) {
      switch (id) {
        case kHelp:
          std::cout << kivrun::kUsage;
          return StdoutWritten();
        case kVersion:
          toolcli::PrintVersion(std::cout, "kivrun");
          return StdoutWritten();
        case kConfig:
          config_path = value;
          break;
        case kPlugin:
          // The first --plugin takes the default's place; the others come after it.
          if (!plugin_given) options.plugins.clear();
          plugin_given = true;
          options.plugins.push_back(value);
          break;
        case kLog:
          log_to_stdout = value == "-";
          log_path = log_to_stdout ? "" : value;
          break;
        case kTraceTimes:
          trace_path = value;
          break;
        case kReport:
          options.report_dir = value;
          options.report_name = value;
          break;
        case kEcho: {
          echo = true;
          options.fold_echo = true;
          if (echo_count >= echo_values.size() || !echo_values[echo_count++].first) break;
          const std::string& mode = echo_values[echo_count - 1].second;
          if (mode != "raw") {
            throw toolcli::UsageError("--echo takes no value or the value raw, not '" + mode + "'");
          }
          options.fold_echo = false;
          break;
        }
        case kReplay:
          replay_path = value;
          break;
        case kPictures:
          pictures = kivrun::PictureFolder(value);
          break;
        case kProgress:
          progress = true;
          break;
        case kRealtime:
          options.realtime = true;
          break;
        case kPrivateTmp:
          private_tmp = true;
          break;
        case kMachineTmp:
          machine_tmp = true;
          break;
        case kPicturesOut:
          pictures_out = value;
          break;
      }
    }
  } catch (const toolcli::UsageError& e) {
    return UsageError(e.what());
  }
  if (machine_tmp && private_tmp) {
    return UsageError("--machine-tmp and --private-tmp ask for two different /tmp; give one");
  }
  if (machine_tmp && !pictures_out.empty()) {
    return UsageError(
        "--pictures-out copies the node's pictures out of its private /tmp; with --machine-tmp "
        "they stay in the machine's /tmp");
  }
  const std::vector<std::string>& operands = command_line.Operands();
  if (!replay_path.empty()) {
    if (!operands.empty()) {
      return UsageError("--replay plays a recorded log, not a scenario (got " + operands[0] + ")");
    }
    if (!config_path.empty()) {
      return UsageError(
          "--replay builds the node from the recorded configuration; leave out --config");
    }
    if (options.realtime) {
      return UsageError("--replay plays on the virtual clock; leave out --realtime");
    }
    if (!pictures.empty()) {
      return UsageError("--replay plays the camera settings as recorded; leave out --pictures");
    }
  }
  if (operands.size() > 1) {
    return UsageError("one scenario at a time (got " + operands[0] + " and " + operands[1] + ")");
  }
  if (operands.size() == 1) scenario_path = operands[0];
  if (scenario_path.empty() && config_path.empty() && replay_path.empty()) {
    return UsageError("give a scenario, a --config or a --replay");
  }

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
