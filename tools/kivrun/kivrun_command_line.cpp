#include "tools/kivrun/kivrun_command_line.h"

#include <getopt.h>

#include <utility>

#include "tools/command_line.h"
#include "tools/kivrun/picture_option.h"

namespace kivrun {
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

// The options that cannot go together, and what a run needs.
void CheckTheWhole(const CommandLineRequest& request, const std::vector<std::string>& operands) {
  using toolcli::UsageError;
  if (request.machine_tmp && request.private_tmp) {
    throw UsageError("--machine-tmp and --private-tmp ask for two different /tmp; give one");
  }
  if (request.machine_tmp && !request.pictures_out.empty()) {
    throw UsageError(
        "--pictures-out copies the node's pictures out of its private /tmp; with --machine-tmp "
        "they stay in the machine's /tmp");
  }
  if (!request.replay_path.empty()) {
    if (!operands.empty()) {
      throw UsageError("--replay plays a recorded log, not a scenario (got " + operands[0] + ")");
    }
    if (!request.config_path.empty()) {
      throw UsageError(
          "--replay builds the node from the recorded configuration; leave out --config");
    }
    if (request.realtime) {
      throw UsageError("--replay plays on the virtual clock; leave out --realtime");
    }
    if (!request.pictures.empty()) {
      throw UsageError("--replay plays the camera settings as recorded; leave out --pictures");
    }
  }
  if (operands.size() > 1) {
    throw UsageError("one scenario at a time (got " + operands[0] + " and " + operands[1] + ")");
  }
  // An empty operand names no scenario.
  const bool scenario = operands.size() == 1 && !operands[0].empty();
  if (!scenario && request.config_path.empty() && request.replay_path.empty()) {
    throw UsageError("give a scenario, a --config or a --replay");
  }
}

}  // namespace

CommandLineRequest ReadCommandLine(const std::vector<std::string>& given) {
  CommandLineRequest request;
  std::vector<std::string> args = given;
  const std::vector<std::pair<bool, std::string>> echo_values = TakeEchoValues(args);
  std::size_t echo_count = 0;
  std::vector<char*> arg_pointers;
  for (std::string& arg : args) arg_pointers.push_back(arg.data());
  arg_pointers.push_back(nullptr);
  toolcli::CommandLine command_line(static_cast<int>(args.size()), arg_pointers.data(), kOptions);
  int id = 0;
  std::string value;
  while (command_line.Next(&id, &value)) {
    switch (id) {
      case kHelp:
        request.action = CommandLineRequest::Action::kHelp;
        return request;
      case kVersion:
        request.action = CommandLineRequest::Action::kVersion;
        return request;
      case kConfig:
        request.config_path = value;
        break;
      case kPlugin:
        request.plugins.push_back(value);
        break;
      case kLog:
        request.log_to_stdout = value == "-";
        request.log_path = request.log_to_stdout ? "" : value;
        break;
      case kTraceTimes:
        request.trace_path = value;
        break;
      case kReport:
        request.report_dir = value;
        break;
      case kEcho: {
        request.echo = true;
        request.fold_echo = true;
        if (echo_count >= echo_values.size() || !echo_values[echo_count++].first) break;
        const std::string& mode = echo_values[echo_count - 1].second;
        if (mode != "raw") {
          throw toolcli::UsageError("--echo takes no value or the value raw, not '" + mode + "'");
        }
        request.fold_echo = false;
        break;
      }
      case kReplay:
        request.replay_path = value;
        break;
      case kPictures:
        request.pictures = PictureFolder(value);
        break;
      case kProgress:
        request.progress = true;
        break;
      case kRealtime:
        request.realtime = true;
        break;
      case kPrivateTmp:
        request.private_tmp = true;
        break;
      case kMachineTmp:
        request.machine_tmp = true;
        break;
      case kPicturesOut:
        request.pictures_out = value;
        break;
    }
  }
  const std::vector<std::string>& operands = command_line.Operands();
  CheckTheWhole(request, operands);
  if (operands.size() == 1) request.scenario_path = operands[0];
  return request;
}

}  // namespace kivrun
