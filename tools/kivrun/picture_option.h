// kivrun --pictures DIR: the folder of recorded pictures a round plays on.
//
// PictureFolder checks the option's value and makes it absolute, so that
// the camera finds the folder from any working folder, and a replay of the
// log too; it throws toolcli::UsageError when the value is not a folder, or
// names where the node writes its own pictures (/tmp, /tmp/left,
// /tmp/right, /tmp/pic), which the round would overwrite. ShowPictures puts
// the camera setting {"pictures": DIR} before the scenario's first step,
// logged as a camera_settings event of step 0, and makes DIR/camera.yaml,
// when there is one, the round's camera model (Scenario::camera_model):
// the camera those pictures were taken with.
#ifndef LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_
#define LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_

#include <string>

#include "tools/kivrun/scenario.h"

namespace kivrun {

std::string PictureFolder(const std::string& value);
void ShowPictures(const std::string& dir, Scenario* scenario);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_PICTURE_OPTION_H_
