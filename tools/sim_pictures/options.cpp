// sim-pictures' command line (options.h).
#include "tools/sim_pictures/options.h"

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/version.h"

namespace simpictures {
namespace {

const char kUsage[] =
    R"(usage: sim-pictures [options] OUTDIR

Writes the pictures the camera simulator shows at each distance, as a
picture folder a round can be played on: OUTDIR/<distance>/left.png and
right.png (docs/camera-sim.md, "Recorded pictures"); with --chessboard
also chessboard views, OUTDIR/chessboard/01.png ... and board.json
(docs/camera-sim.md, "Pictures for others").

options:
  --preset NAME|FILE     the camera: ideal (the default), robot, harsh, or a
                         preset file ending in .json
  --settings JSON|FILE   camera settings to apply after the preset: a JSON
                         object, or a file holding one (docs/camera-sim.md)
  --distances LIST       the distances, in cm, separated by commas, or none
                         (default 5,10,15,20,25,27.5,30,35,40,45: the
                         factory distances and the factory round's
                         distance check)
  --sides LIST           left, right and/or other (default left,right)
  --exposure node|E/G    the sensor's exposure and gain: the node's choice
                         for each distance (the default; a distance with a
                         fraction is the distance check's wall) or E/G for
                         every picture, as 1900/32
  --table factory|app    whose exposure table the node uses (default factory)
  --chessboard           also write the shipped chessboard views
  --views FILE           write these chessboard views instead (implies
                         --chessboard; the format of
                         tools/sim_pictures/chessboard_views.json)
  --format png|bmp       the pictures' format (default png)
  -h, --help             show this help
  --version              show the version

Examples: a folder with a second stripe in the right picture at 20 cm; a
robot camera's factory pictures and chessboard views:
  sim-pictures pictures
  sim-pictures --settings '{"scene": {"second_stripe": 40}}' \
      --distances 20 --sides right pictures
  sim-pictures --preset robot --chessboard robot-pictures

exit codes: 0 written; 1 a picture could not be written; 2 bad command
line; 3 bad settings or views
)";

std::vector<std::string> Split(const std::string& list) {
  std::vector<std::string> parts;
  std::stringstream in(list);
  for (std::string part; std::getline(in, part, ',');) parts.push_back(part);
  return parts;
}

enum Id {
  kSettings = 256,
  kDistances,
  kSides,
  kFormat,
  kVersion,
  kPreset,
  kExposure,
  kTable,
  kChessboard,
  kViews
};

// "1900/32" as an exposure and a gain, both above 0.
bool ReadSetting(const std::string& text, Setting* setting) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return false;
  const std::string e = text.substr(0, slash), g = text.substr(slash + 1);
  char* end = nullptr;
  const long exposure = std::strtol(e.c_str(), &end, 10);
  if (e.empty() || *end != '\0' || exposure < 1 || exposure > 1000000) return false;
  const long gain = std::strtol(g.c_str(), &end, 10);
  if (g.empty() || *end != '\0' || gain < 1 || gain > 1000000) return false;
  setting->exposure = static_cast<int>(exposure);
  setting->gain = static_cast<int>(gain);
  return true;
}

}  // namespace

Options ReadCommandLine(int argc, char** argv, bool* done) {
  toolcli::CommandLine line(argc, argv,
                            {{"settings", 0, "a JSON object or a file", kSettings},
                             {"preset", 0, "a preset's name or a .json file", kPreset},
                             {"exposure", 0, "node or EXPOSURE/GAIN", kExposure},
                             {"table", 0, "factory or app", kTable},
                             {"chessboard", 0, nullptr, kChessboard},
                             {"views", 0, "a views file", kViews},
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
      case kPreset:
        options.preset = value;
        break;
      case kExposure:
        options.node_exposure = value == "node";
        if (!options.node_exposure && !ReadSetting(value, &options.exposure)) {
          throw toolcli::UsageError("--exposure needs node or EXPOSURE/GAIN (as 1900/32), not '" +
                                    value + "'");
        }
        break;
      case kTable:
        if (value != "factory" && value != "app") {
          throw toolcli::UsageError(line.BadValue(id, value));
        }
        options.app_table = value == "app";
        break;
      case kChessboard:
        options.chessboard = true;
        break;
      case kViews:
        options.views = value;
        options.chessboard = true;
        break;
      case kDistances:
        options.distances.clear();
        if (value == "none") break;
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

}  // namespace simpictures
