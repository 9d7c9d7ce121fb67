#include "tools/stripe_tool/stripe_options.h"

#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tools/command_line.h"
#include "tools/stripe_tool/picture_list.h"

namespace stripetool {

namespace {

// The options, as getopt_long reads them. A long option without a short name
// gets an id above 255.
enum OptionId {
  kHelp = 'h',
  kJobs = 'j',
  kSide = 256,
  kDistance,
  kDelt,
  kOverlay,
  kOut,
  kSheet,
  kJson,
  kCsv,
  kGray,
  kVersion,
};

constexpr char kWholeNumber[] = "a whole number from 0 to 65535";

const std::vector<toolcli::Option> kOptions = {
    {"side", 0, "left or right", kSide},
    {"distance", 0, kWholeNumber, kDistance},
    {"delt", 0, kWholeNumber, kDelt},
    {"overlay", 0, "a file name", kOverlay},
    {"out", 0, "a file name", kOut},
    {"sheet", 0, "a file name", kSheet},
    {"json", 0, nullptr, kJson},
    {"csv", 0, nullptr, kCsv},
    {"jobs", 'j', "a whole number from 1 to 256", kJobs},
    {"gray", 0, nullptr, kGray},
    {"help", 'h', nullptr, kHelp},
    {"version", 0, nullptr, kVersion},
};

// A number option's value: plain decimal digits and nothing else (no sign,
// blank, base prefix, fraction or exponent), from `low` to `high`.
long ParseNumber(const toolcli::CommandLine& command_line, int id, const std::string& text,
                 long low, long high) {
  if (text.empty()) throw toolcli::UsageError(command_line.BadValue(id, text));
  long value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') throw toolcli::UsageError(command_line.BadValue(id, text));
    value = value * 10 + (c - '0');
    if (value > high) throw toolcli::UsageError(command_line.BadValue(id, text));
  }
  if (value < low) throw toolcli::UsageError(command_line.BadValue(id, text));
  return value;
}

// --overlay and --out go with the report of one picture: the message for
// the option `name` when the command line asks for a list.
std::string OnePictureOnly(const std::string& name, const Options& options, const char* hint) {
  if (options.pictures.size() > 1) {
    return name + " needs one picture, not " + std::to_string(options.pictures.size()) + hint;
  }
  if (IsFolder(options.pictures[0])) {
    return name + " needs one picture, and '" + options.pictures[0] + "' is a folder" + hint;
  }
  return name + " goes with the report of one picture, not with " +
         (options.csv ? "--csv" : "--sheet");
}

}  // namespace

std::optional<Options> ParseArgs(int argc, char** argv) {
  Options options;
  toolcli::CommandLine command_line(argc, argv, kOptions);
  int id = 0;
  std::string value;
  while (command_line.Next(&id, &value)) {
    switch (id) {
      case kHelp:
        return std::nullopt;
      case kVersion:
        options.version = true;
        return options;
      case kSide:
        if (value == "left") {
          options.mode = kivplugcali::kStripeWalkLeft;
        } else if (value == "right") {
          options.mode = kivplugcali::kStripeWalkRight;
        } else {
          throw toolcli::UsageError(command_line.BadValue(id, value));
        }
        break;
      case kDistance:
        options.distance = static_cast<uint16_t>(ParseNumber(command_line, id, value, 0, 65535));
        break;
      case kDelt:
        options.delt = static_cast<uint16_t>(ParseNumber(command_line, id, value, 0, 65535));
        break;
      case kJobs:
        options.jobs = static_cast<unsigned>(ParseNumber(command_line, id, value, 1, 256));
        break;
      case kOverlay:
        options.overlay = value;
        break;
      case kOut:
        options.out = value;
        break;
      case kSheet:
        options.sheet = value;
        break;
      case kJson:
        options.json = true;
        break;
      case kCsv:
        options.csv = true;
        break;
      case kGray:
        options.gray = true;
        break;
    }
  }
  options.pictures = command_line.Operands();
  if (options.pictures.empty()) throw toolcli::UsageError("no picture given");
  if (options.csv && options.json) throw toolcli::UsageError("--csv and --json do not go together");
  options.list = options.pictures.size() > 1 || IsFolder(options.pictures[0]) || options.csv ||
                 !options.sheet.empty();
  if (options.list && !options.overlay.empty()) {
    throw toolcli::UsageError(OnePictureOnly("--overlay", options, " (--sheet draws many)"));
  }
  if (options.list && !options.out.empty()) {
    throw toolcli::UsageError(OnePictureOnly("--out", options, ""));
  }
  return options;
}

int ModeOf(const Options& options, const std::string& path) {
  if (options.mode) return *options.mode;
  return LaserInPath(path).value_or(kivplugcali::kStripeWalkLeft);
}

}  // namespace stripetool
