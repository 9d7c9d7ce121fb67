// stripe-inspect: runs the calibration node's laser stripe cut on a picture
// file and reports what the node would do with it. See docs/stripe-tool.md.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/caligetpic.h"
#include "src/stripecut.h"
#include "tools/command_line.h"
#include "tools/kivrun/output_file.h"
#include "tools/stripe_tool/overlay.h"
#include "tools/stripe_tool/picture_input.h"
#include "tools/version.h"

namespace {

using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;

constexpr const char* kUsage = R"(Usage: stripe-inspect IMAGE [options]

Runs the calibration node's laser stripe cut on IMAGE and reports what the
node would do with the picture: cut it and store the cut picture, or refuse
it (two stripes, too few points, no cut line). IMAGE is any picture file
OpenCV reads, 640 x 480 with one 8-bit channel.

Options:
  --side left|right   laser that took the picture: left walks each row from
                      the left (mode 1), right from the right (mode 8);
                      default left
  --distance D        working distance of the picture, 0 to 65535; default 20
  --delt N            offset added to the picture number, 0 to 65535;
                      default 0 (the picture number is D * 100 + N)
  --overlay OUT.png   write a colour picture of the scanned rows, the stripe
                      points, the slope checks, the cut line and the kept
                      region
  --out FILE          write the cut picture exactly as the node stores it
                      (only when the picture is cut; use a .bmp name for the
                      node's file form)
  --json              print the report as one JSON object
  --gray              convert a colour picture to gray before the cut
  -h, --help          show this help and exit
  --version           show the version and exit

Options may come before or after IMAGE. A value follows its option as
"--distance 30" or "--distance=30"; D and N are plain decimal digits (no
sign, blank, 0x, fraction or exponent). A long option may be shortened to
any prefix that names only it ("--dist" for --distance); "--" ends the
options.

The exit status is 0 whatever the outcome of the cut; 1 when the picture
cannot be read, has the wrong shape, or an output cannot be written; 2 for
bad options.
)";

struct Options {
  std::string image;
  int mode = kivplugcali::kStripeWalkLeft;
  uint16_t distance = 20;
  uint16_t delt = 0;
  std::string overlay;
  std::string out;
  bool json = false;
  bool gray = false;
  bool version = false;  // --version: show it, do nothing else
};

// The options, as getopt_long reads them. A long option without a short name
// gets an id above 255.
enum OptionId {
  kHelp = 'h',
  kSide = 256,
  kDistance,
  kDelt,
  kOverlay,
  kOut,
  kJson,
  kGray,
  kVersion,
};

constexpr char kWholeNumber[] = "a whole number from 0 to 65535";

const std::vector<toolcli::Option> kOptions = {
    {"side", 0, "left or right", kSide}, {"distance", 0, kWholeNumber, kDistance},
    {"delt", 0, kWholeNumber, kDelt},    {"overlay", 0, "a file name", kOverlay},
    {"out", 0, "a file name", kOut},     {"json", 0, nullptr, kJson},
    {"gray", 0, nullptr, kGray},         {"help", 'h', nullptr, kHelp},
    {"version", 0, nullptr, kVersion},
};

// A number option's value: plain decimal digits and nothing else (no sign,
// blank, base prefix, fraction or exponent), from 0 to 65535.
uint16_t ParseU16(const toolcli::CommandLine& command_line, int id, const std::string& text) {
  if (text.empty()) throw toolcli::UsageError(command_line.BadValue(id, text));
  long value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') throw toolcli::UsageError(command_line.BadValue(id, text));
    value = value * 10 + (c - '0');
    if (value > 65535) throw toolcli::UsageError(command_line.BadValue(id, text));
  }
  return static_cast<uint16_t>(value);
}

// Returns nullopt when help was asked for; throws toolcli::UsageError.
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
        options.distance = ParseU16(command_line, id, value);
        break;
      case kDelt:
        options.delt = ParseU16(command_line, id, value);
        break;
      case kOverlay:
        options.overlay = value;
        break;
      case kOut:
        options.out = value;
        break;
      case kJson:
        options.json = true;
        break;
      case kGray:
        options.gray = true;
        break;
    }
  }
  const std::vector<std::string>& pictures = command_line.Operands();
  if (pictures.empty()) throw toolcli::UsageError("no picture given");
  if (pictures.size() > 1) {
    throw toolcli::UsageError("one picture at a time; '" + pictures[1] + "' is one too many");
  }
  options.image = pictures[0];
  return options;
}

// The report, as both the text and the JSON output show it.
struct Report {
  std::string outcome;  // key for JSON
  std::string words;    // for people
  std::optional<int> points, num2, G, cut_line, two_stripe_row;
  int first_peak = -1;
  int second_peak = -1;
  int slope_checks = 0;
  int steep_checks = 0;
  int stray_points = 0;
  std::string scan_file;
  std::optional<std::string> file;
};

Report MakeReport(const StripeCut& cut, const Options& options) {
  Report report;
  report.scan_file = kivplugcali::StripeScanFile(options.mode);
  if (cut.stop != StripeCutStop::kTwoStripes) report.points = static_cast<int>(cut.points.size());
  if (!cut.roles.empty()) {
    report.num2 = cut.num2;
    report.G = cut.G;
  }
  if (cut.cut_found) report.cut_line = cut.cut_line;
  report.slope_checks = static_cast<int>(cut.checks.size());
  for (const auto& check : cut.checks) report.steep_checks += check.k1 > 3 ? 1 : 0;
  for (auto role : cut.roles) {
    report.stray_points += role == kivplugcali::StripePointRole::kStray ? 1 : 0;
  }

  switch (cut.stop) {
    case StripeCutStop::kCut:
      report.outcome = "cut";
      break;
    case StripeCutStop::kTwoStripes:
      report.outcome = "two_stripes";
      report.two_stripe_row = cut.two_stripe_row;
      report.first_peak = cut.first_peak_col;
      report.second_peak = cut.second_peak_col;
      break;
    case StripeCutStop::kTooFewPoints:
      report.outcome = "too_few_points";
      break;
    case StripeCutStop::kNoCutLine:
      report.outcome = "no_cut_line";
      break;
    case StripeCutStop::kCutRefused:
      report.outcome = "cut_refused";
      break;
  }
  report.words = stripeinspect::DescribeCut(cut);

  if (cut.result == 0) {
    char name[128];
    kivplugcali::FormatStripeCutFile(name, sizeof(name),
                                     options.mode == kivplugcali::kStripeWalkLeft
                                         ? kivplugcali::left_path
                                         : kivplugcali::right_path,
                                     options.distance, options.delt);
    report.file = name;
  }
  return report;
}

std::string SideName(int mode) { return mode == kivplugcali::kStripeWalkLeft ? "left" : "right"; }

void PrintJson(const Report& report, const StripeCut& cut, const Options& options) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> json(buffer);
  auto optional_int = [&json](const char* key, const std::optional<int>& value) {
    json.Key(key);
    if (value) {
      json.Int(*value);
    } else {
      json.Null();
    }
  };
  json.StartObject();
  json.Key("image");
  json.String(options.image.c_str());
  json.Key("side");
  json.String(SideName(options.mode).c_str());
  json.Key("mode");
  json.Int(options.mode);
  json.Key("distance");
  json.Uint(options.distance);
  json.Key("delt");
  json.Uint(options.delt);
  json.Key("result");
  json.Uint(cut.result);
  json.Key("outcome");
  json.String(report.outcome.c_str());
  json.Key("description");
  json.String(report.words.c_str());
  optional_int("points", report.points);
  optional_int("num2", report.num2);
  optional_int("G", report.G);
  optional_int("cut_line", report.cut_line);
  optional_int("two_stripe_row", report.two_stripe_row);
  json.Key("two_stripe_peaks");
  if (report.two_stripe_row) {
    json.StartArray();
    json.Int(report.first_peak);
    json.Int(report.second_peak);
    json.EndArray();
  } else {
    json.Null();
  }
  json.Key("slope_checks");
  json.Int(report.slope_checks);
  json.Key("steep_checks");
  json.Int(report.steep_checks);
  json.Key("stray_points");
  json.Int(report.stray_points);
  json.Key("scan_file");
  json.String(report.scan_file.c_str());
  json.Key("file");
  if (report.file) {
    json.String(report.file->c_str());
  } else {
    json.Null();
  }
  json.EndObject();
  std::cout << buffer.GetString() << "\n";
}

void PrintText(const Report& report, const StripeCut& cut, const Options& options) {
  auto value = [](const std::optional<int>& v) {
    return v ? std::to_string(*v) : std::string("-");
  };
  std::cout << "picture      " << options.image << " (" << SideName(options.mode) << " laser, mode "
            << options.mode << ")\n"
            << "outcome      " << report.words << "\n"
            << "result       " << int(cut.result) << "\n"
            << "points       " << value(report.points) << "\n"
            << "num2         " << value(report.num2) << "\n"
            << "G            " << value(report.G) << "\n"
            << "cut line     " << value(report.cut_line) << "\n"
            << "slope checks " << report.slope_checks << " (" << report.steep_checks
            << " steep), stray points " << report.stray_points << "\n"
            << "scan file    " << report.scan_file << "\n"
            << "file         " << (report.file ? *report.file : std::string("none (not cut)"))
            << "\n";
}

// Encodes the picture in the format its file name asks for and writes it;
// every write is checked, so a full disk is reported, not a short file.
void Write(const std::string& path, const cv::Mat& picture, const char* what) {
  const std::string where = std::string("cannot write the ") + what + " to '" + path + "': ";
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) {
    throw std::runtime_error(where +
                             "the file name has no extension (.png, .bmp, ...) to choose "
                             "the picture format");
  }
  std::vector<uchar> bytes;
  bool encoded = false;
  try {
    encoded = cv::imencode(path.substr(dot), picture, bytes);
  } catch (const cv::Exception&) {
    encoded = false;
  }
  if (!encoded) {
    throw std::runtime_error(where + "no picture format for the extension '" + path.substr(dot) +
                             "'");
  }
  std::string reason;
  if (!kivrun::WriteWholeFile(path, bytes.data(), bytes.size(), &reason)) {
    throw std::runtime_error(where + reason);
  }
}

// After the report, help or version: every byte must have reached standard output.
int StdoutWritten(int code) {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout && !std::ferror(stdout)) return code;
  std::cerr << "stripe-inspect: cannot write standard output: " << std::strerror(errno) << "\n";
  return 1;
}

int Run(const Options& options) {
  const cv::Mat picture = stripetool::ReadPicture(options.image, options.gray);
  StripeCut cut;
  kivplugcali::CutStripe(picture, options.mode, &cut);
  const Report report = MakeReport(cut, options);

  if (!options.overlay.empty()) {
    const std::string caption = SideName(options.mode) + ": " + report.words;
    Write(options.overlay, stripeinspect::DrawOverlay(picture, cut, caption), "overlay");
  }
  if (!options.out.empty()) {
    if (cut.result == 0) {
      Write(options.out, cut.picture, "cut picture");
    } else {
      std::cerr << "stripe-inspect: the picture was not cut; " << options.out
                << " is not written\n";
    }
  }

  if (options.json) {
    PrintJson(report, cut, options);
  } else {
    PrintText(report, cut, options);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // The tool reports read and write failures itself.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
  std::optional<Options> options;
  try {
    options = ParseArgs(argc, argv);
  } catch (const toolcli::UsageError& e) {
    toolcli::ReportUsageError(std::cerr, "stripe-inspect", e.what());
    return 2;
  }
  if (!options) {
    std::cout << kUsage;
    return StdoutWritten(0);
  }
  if (options->version) {
    toolcli::PrintVersion(std::cout, "stripe-inspect");
    return StdoutWritten(0);
  }
  try {
    return StdoutWritten(Run(*options));
  } catch (const std::exception& e) {
    std::cerr << "stripe-inspect: " << e.what() << "\n";
    return 1;
  }
}
