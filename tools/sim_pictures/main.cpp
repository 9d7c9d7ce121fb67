// sim-pictures: writes the pictures the camera simulator shows, for a list
// of distances, as a picture folder a round can be played on (the camera
// setting "pictures", kivrun --pictures).
//
// usage: sim-pictures [options] OUTDIR
// It applies the camera settings given (docs/camera-sim.md), then for each
// distance (by default the factory distances 5 to 45 and the shipped
// rounds' distance check at 27.5) sets the wall there and writes
// OUTDIR/<distance>/<side>.<format> for each side: the luminance of a left
// (laser field 1), right (8) or other (0) frame, 640 x 480 gray. A line per
// file on standard output.
//
// Exit codes: 0 every picture written; 1 a picture could not be written (the
// message names it); 2 bad command line; 3 bad settings (the message names
// the member or the file).
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "tools/command_line.h"
#include "tools/kivrun/output_file.h"
#include "tools/kivrun/scenario.h"
#include "tools/version.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;

constexpr char kProgram[] = "sim-pictures";
constexpr int kOk = 0, kWriteError = 1, kUsageError = 2, kSettingsError = 3;

const char kUsage[] =
    R"(usage: sim-pictures [options] OUTDIR

Writes the pictures the camera simulator shows at each distance, as a
picture folder a round can be played on: OUTDIR/<distance>/left.png and
right.png (docs/camera-sim.md, "Recorded pictures").

options:
  --settings JSON|FILE   camera settings to apply first: a JSON object, or
                         a file holding one (docs/camera-sim.md)
  --distances LIST       the distances, in cm, separated by commas
                         (default 5,10,15,20,25,27.5,30,35,40,45: the
                         factory distances and the factory round's
                         distance check)
  --sides LIST           left, right and/or other (default left,right)
  --format png|bmp       the pictures' format (default png)
  -h, --help             show this help
  --version              show the version

Example, a folder with a second stripe in the right picture at 20 cm:
  sim-pictures pictures
  sim-pictures --settings '{"scene": {"second_stripe": 40}}' \
      --distances 20 --sides right pictures

exit codes: 0 written; 1 a picture could not be written; 2 bad command
line; 3 bad settings
)";

struct Options {
  std::string settings;
  // The factory distances and the shipped rounds' distance check (a wall at
  // 27.5 cm), so that the folder serves a whole factory round.
  std::vector<double> distances{5, 10, 15, 20, 25, 27.5, 30, 35, 40, 45};
  std::vector<std::string> sides{"left", "right"};
  std::string format = "png";
  std::string out;
};

std::vector<std::string> Split(const std::string& list) {
  std::vector<std::string> parts;
  std::stringstream in(list);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

// A distance as the folder name the simulator looks for: "35", "12.5".
std::string DistanceName(double distance) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", distance);
  return text;
}

enum Id { kSettings = 256, kDistances, kSides, kFormat, kVersion };

Options ReadCommandLine(int argc, char** argv, bool* done) {
  toolcli::CommandLine line(argc, argv,
                            {{"settings", 0, "a JSON object or a file", kSettings},
                             {"distances", 0, "distances separated by commas", kDistances},
                             {"sides", 0, "left, right and/or other", kSides},
                             {"format", 0, "png or bmp", kFormat},
                             {"help", 'h', nullptr, 'h'},
                             {"version", 0, nullptr, kVersion}});
  Options options;
  int id = 0;
  std::string value;
  while (line.Next(&id, &value)) {
    switch (id) {
      case kSettings:
        options.settings = value;
        break;
      case kDistances:
        options.distances.clear();
        for (const std::string& part : Split(value)) {
          char* end = nullptr;
          const double d = std::strtod(part.c_str(), &end);
          if (part.empty() || *end != '\0' || !(d > 0 && d <= 10000)) {
            throw toolcli::UsageError(
                "--distances needs numbers above 0 and at most 10000 separated by commas, not '" +
                value + "'");
          }
          options.distances.push_back(d);
        }
        break;
      case kSides:
        options.sides = Split(value);
        for (const std::string& side : options.sides) {
          if (side != "left" && side != "right" && side != "other") {
            throw toolcli::UsageError(line.BadValue(id, value));
          }
        }
        break;
      case kFormat:
        if (value != "png" && value != "bmp") throw toolcli::UsageError(line.BadValue(id, value));
        options.format = value;
        break;
      case 'h':
        std::cout << kUsage;
        *done = true;
        return options;
      case kVersion:
        toolcli::PrintVersion(std::cout, kProgram);
        *done = true;
        return options;
    }
  }
  const std::vector<std::string>& operands = line.Operands();
  if (operands.empty()) throw toolcli::UsageError("give the folder to write the pictures into");
  if (operands.size() > 1) {
    throw toolcli::UsageError("one folder at a time (got " + operands[0] + " and " + operands[1] +
                              ")");
  }
  options.out = operands[0];
  return options;
}

// Writes `picture` to `path`, every byte checked; "" or what went wrong.
std::string Write(const std::string& path, const cv::Mat& picture, const std::string& format) {
  std::vector<uchar> bytes;
  if (!cv::imencode("." + format, picture, bytes)) return "cannot encode the picture";
  kivrun::OutputFile file(path);
  std::ostream out(&file);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  out.flush();
  if (!file.Close()) return file.reason();
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    bool done = false;
    options = ReadCommandLine(argc, argv, &done);
    if (done) return std::cout.flush() ? kOk : kWriteError;
  } catch (const toolcli::UsageError& error) {
    toolcli::ReportUsageError(std::cerr, kProgram, error.what());
    return kUsageError;
  }

  sim::Reset();
  if (!options.settings.empty()) {
    try {
      const bool text = options.settings.find('{') != std::string::npos;
      std::shared_ptr<rapidjson::Document> settings =
          text ? kivrun::ParseJsonText(options.settings, "--settings")
               : kivrun::ReadJsonFile(options.settings);
      sim::Configure(*settings);
    } catch (const std::exception& error) {
      std::cerr << kProgram << ": " << error.what() << "\n";
      return kSettingsError;
    }
  }

  for (double distance : options.distances) {
    const fs::path folder = fs::path(options.out) / DistanceName(distance);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
      std::cerr << kProgram << ": cannot make the folder '" << folder.string()
                << "': " << error.message() << "\n";
      return kWriteError;
    }
    sim::SetDistance(distance);
    for (const std::string& side : options.sides) {
      const uint64_t laser = side == "left" ? 1 : side == "right" ? 8 : 0;
      const cv::Mat picture(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser)));
      const std::string path = (folder / (side + "." + options.format)).string();
      const std::string problem = Write(path, picture, options.format);
      if (!problem.empty()) {
        std::cerr << kProgram << ": cannot write '" << path << "': " << problem << "\n";
        return kWriteError;
      }
      std::cout << path << "\n";
    }
  }
  std::cout.flush();
  return std::cout ? kOk : kWriteError;
}
