// kivrun --pictures DIR: the folder of recorded pictures a round plays on.
//
// PictureFolder checks the option's value and makes it absolute, so that
// the camera finds the folder from any working folder, and a replay of the
// log too; it throws toolcli::UsageError when the value is not a folder, or
// names where the node writes its own pictures (/tmp, /tmp/left,
// /tmp/right, /tmp/pic), which the round would overwrite. ShowPictures puts
// the camera setting {"pictures": DIR} before the scenario's first step,
// logged as a camera_settings event of step 0, and gives the round the
// camera those pictures were taken with: DIR/camera.yaml, when there is one
// (Scenario::camera_model); else, when DIR has a folder "chessboard" (and
// the scenario measures no camera of its own), the camera the chessboard
// step measures from its views (chessboard_folder.h): kivrun's steps of
// step 0 before the scenario's, which show each view for one chessboard
// request to a computing camera parameter node and stop the round when the
// views give no camera; else the scenario's camera, saying so on `notes`
// when the scenario's planes are computed. It throws ChessboardFolderError
// when the chessboard folder cannot be used, or when the scenario computes
// planes and nothing gives it a camera.
#ifndef LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_
#define LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_

#include <ostream>
#include <string>

#include "tools/kivrun/scenario.h"

namespace kivrun {

std::string PictureFolder(const std::string& value);
void ShowPictures(const std::string& dir, Scenario* scenario, std::ostream& notes);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_
