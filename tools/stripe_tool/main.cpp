// stripe-inspect: runs the calibration node's laser stripe cut on a picture
// file and reports what the node would do with it. See docs/stripe-tool.md.
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cerrno>
#include <cstdint>
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

#include "src/caligetpic.h"
#include "src/stripecut.h"
#include "tools/stripe_tool/overlay.h"

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
};

// A bad command line: its message, for standard error, exit status 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

uint16_t ParseU16(const std::string& option, const std::string& text) {
  std::size_t used = 0;
  long value = -1;
  try {
    value = std::stol(text, &used, 10);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used != text.size() || text.empty() || value < 0 || value > 65535) {
    throw UsageError(option + " needs a whole number from 0 to 65535, not '" + text + "'");
  }
  return static_cast<uint16_t>(value);
}

// Returns nullopt when help was asked for.
std::optional<Options> ParseArgs(int argc, char** argv) {
  Options options;
  bool have_image = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") return std::nullopt;
    if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
      std::string name = arg;
      std::optional<std::string> value;
      const std::size_t eq = arg.find('=');
      if (eq != std::string::npos) {
        name = arg.substr(0, eq);
        value = arg.substr(eq + 1);
      }
      auto take_value = [&]() -> std::string {
        if (value) return *value;
        if (i + 1 >= argc) throw UsageError(name + " needs a value");
        return argv[++i];
      };
      auto no_value = [&]() {
        if (value) throw UsageError(name + " takes no value");
      };
      if (name == "--side") {
        const std::string side = take_value();
        if (side == "left") {
          options.mode = kivplugcali::kStripeWalkLeft;
        } else if (side == "right") {
          options.mode = kivplugcali::kStripeWalkRight;
        } else {
          throw UsageError("--side is left or right, not '" + side + "'");
        }
      } else if (name == "--distance") {
        options.distance = ParseU16(name, take_value());
      } else if (name == "--delt") {
        options.delt = ParseU16(name, take_value());
      } else if (name == "--overlay" || name == "--out") {
        std::string& file = name == "--overlay" ? options.overlay : options.out;
        file = take_value();
        if (file.empty()) throw UsageError(name + " needs a file name");
      } else if (name == "--json") {
        no_value();
        options.json = true;
      } else if (name == "--gray") {
        no_value();
        options.gray = true;
      } else {
        throw UsageError("unknown option " + name);
      }
    } else if (arg.size() > 1 && arg[0] == '-') {
      throw UsageError("unknown option " + arg);
    } else if (!have_image) {
      options.image = arg;
      have_image = true;
    } else {
      throw UsageError("one picture at a time; '" + arg + "' is one too many");
    }
  }
  if (!have_image) throw UsageError("no picture given");
  return options;
}

std::string DepthName(int depth) {
  switch (depth) {
    case CV_8U:
      return "8-bit";
    case CV_8S:
      return "signed 8-bit";
    case CV_16U:
      return "16-bit";
    case CV_16S:
      return "signed 16-bit";
    case CV_32S:
      return "32-bit integer";
    case CV_32F:
      return "32-bit float";
    case CV_64F:
      return "64-bit float";
    default:
      return "unusual";
  }
}

// Reads the picture; throws std::runtime_error with the message to show.
cv::Mat ReadPicture(const Options& options) {
  if (!std::ifstream(options.image, std::ios::binary)) {
    throw std::runtime_error("cannot open '" + options.image + "': " + std::strerror(errno));
  }
  cv::Mat picture = cv::imread(options.image, cv::IMREAD_UNCHANGED);
  if (picture.empty()) {
    throw std::runtime_error("cannot read a picture from '" + options.image + "'");
  }
  if (options.gray && picture.depth() == CV_8U && picture.channels() == 3) {
    cv::cvtColor(picture, picture, cv::COLOR_BGR2GRAY);
  } else if (options.gray && picture.depth() == CV_8U && picture.channels() == 4) {
    cv::cvtColor(picture, picture, cv::COLOR_BGRA2GRAY);
  }
  if (picture.cols != kivplugcali::kStripeCols || picture.rows != kivplugcali::kStripeRows ||
      picture.type() != CV_8UC1) {
    std::ostringstream message;
    message << "'" << options.image << "' is " << picture.cols << " x " << picture.rows << " with "
            << picture.channels() << " " << DepthName(picture.depth()) << " channel"
            << (picture.channels() == 1 ? "" : "s")
            << "; the stripe cut needs 640 x 480 with one 8-bit channel";
    if (picture.depth() == CV_8U && (picture.channels() == 3 || picture.channels() == 4) &&
        !options.gray) {
      message << " (--gray converts a colour picture)";
    }
    throw std::runtime_error(message.str());
  }
  return picture;
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

void Write(const std::string& path, const cv::Mat& picture, const char* what) {
  bool written = false;
  try {
    written = cv::imwrite(path, picture);
  } catch (const cv::Exception& e) {
    throw std::runtime_error(std::string("cannot write the ") + what + " to '" + path +
                             "': " + e.what());
  }
  if (!written) {
    throw std::runtime_error(std::string("cannot write the ") + what + " to '" + path + "'");
  }
}

int Run(const Options& options) {
  const cv::Mat picture = ReadPicture(options);
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
  } catch (const UsageError& e) {
    std::cerr << "stripe-inspect: " << e.what() << "\n"
              << "Try 'stripe-inspect --help' for usage.\n";
    return 2;
  }
  if (!options) {
    std::cout << kUsage;
    return 0;
  }
  try {
    return Run(*options);
  } catch (const std::exception& e) {
    std::cerr << "stripe-inspect: " << e.what() << "\n";
    return 1;
  }
}
