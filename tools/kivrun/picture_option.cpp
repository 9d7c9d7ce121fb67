#include "tools/kivrun/picture_option.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>

#include "tools/command_line.h"

namespace kivrun {

// The folder of --pictures, absolute, so that the camera finds it from any
// working folder and a replay of the log too. Throws UsageError when it is
// not a folder, or is where the node writes its own pictures: the round
// would overwrite what it reads.
std::string PictureFolder(const std::string& value) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path dir = fs::absolute(value, error).lexically_normal();
  if (error || !fs::is_directory(dir, error)) {
    throw toolcli::UsageError("--pictures needs a folder, not '" + value + "'" +
                              (fs::exists(dir, error) ? "" : " (there is no such folder)"));
  }
  std::string text = dir.string();
  if (text.size() > 1 && text.back() == '/') text.pop_back();
  const fs::path in_tmp = fs::path(text).lexically_relative("/tmp");
  const std::string top = in_tmp.empty() ? "" : in_tmp.begin()->string();
  if (text == "/tmp" || top == "left" || top == "right" || top == "pic") {
    throw toolcli::UsageError("--pictures " + text +
                              " is where the node writes its own pictures, which the round "
                              "would overwrite; copy them to another folder first");
  }
  return text;
}

// Puts the camera setting {"pictures": DIR} before the scenario's first
// step: it is logged as a camera_settings event of step 0. DIR/camera.yaml
// becomes the round's camera model.
void ShowPictures(const std::string& dir, Scenario* scenario) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  writer.StartObject();
  writer.Key("pictures");
  writer.String(dir.c_str(), static_cast<rapidjson::SizeType>(dir.size()));
  writer.EndObject();
  Step step;
  step.number = 0;
  step.kind = Step::Kind::kCamera;
  step.value = JsonText::FromText(text.GetString());
  scenario->steps.insert(scenario->steps.begin(), std::move(step));
  // The folder's own camera, when it holds one.
  std::error_code error;
  const std::string camera = dir + "/camera.yaml";
  if (std::filesystem::is_regular_file(camera, error)) scenario->camera_model = camera;
}

}  // namespace kivrun
