// sim-pictures' command line: what it was asked to write.
#ifndef LASERCALI_TOOLS_SIM_PICTURES_OPTIONS_H_
#define LASERCALI_TOOLS_SIM_PICTURES_OPTIONS_H_

#include <string>
#include <vector>

#include "tools/sim_pictures/node_setting.h"

namespace simpictures {

inline constexpr char kProgram[] = "sim-pictures";

struct Options {
  std::string preset;
  std::string settings;
  // The factory distances and the shipped rounds' distance check (a wall at
  // 27.5 cm), so that the folder serves a whole factory round.
  std::vector<double> distances{5, 10, 15, 20, 25, 27.5, 30, 35, 40, 45};
  std::vector<std::string> sides{"left", "right"};
  std::string format = "png";
  bool node_exposure = true;  // else `exposure` for every picture
  Setting exposure;
  bool app_table = false;
  bool chessboard = false;
  std::string views;  // a views file; "": the shipped views
  std::string out;
};

// Reads the command line; throws toolcli::UsageError on a bad one. Sets
// *done after --help or --version, which it has printed.
Options ReadCommandLine(int argc, char** argv, bool* done);

}  // namespace simpictures

#endif  // LASERCALI_TOOLS_SIM_PICTURES_OPTIONS_H_
