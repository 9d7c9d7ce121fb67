// sim-pictures' camera: the preset and settings of its command line applied
// to the camera simulator, and the chessboard views it is to write.
//
// ApplySettings configures the simulator with the preset (--preset), then
// with the settings (--settings: JSON text when the value holds a "{", else
// the JSON file it names). It throws what refuses them: the simulator's
// std::invalid_argument naming the member ("camera sim: scene.camera.fx
// ..."), or kivrun::ScenarioError naming the file that cannot be read or
// the text that is no JSON. ReadBoardViews reads the views file (--views),
// or the shipped views when `file` is empty, and throws naming the file and
// the member that is wrong (chessboard.h).
#ifndef LASERCALI_TOOLS_SIM_PICTURES_SETTINGS_H_
#define LASERCALI_TOOLS_SIM_PICTURES_SETTINGS_H_

#include <string>

#include "tools/sim_pictures/chessboard.h"
#include "tools/sim_pictures/options.h"

namespace simpictures {

void ApplySettings(const Options& options);
BoardViews ReadBoardViews(const std::string& file);

}  // namespace simpictures

#endif  // LASERCALI_TOOLS_SIM_PICTURES_SETTINGS_H_
