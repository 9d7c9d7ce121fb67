#include "tools/kivrun/picture_option.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>
#include <memory>
#include <ostream>
#include <vector>

#include "tools/command_line.h"
#include "tools/kivrun/chessboard_folder.h"

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

namespace {

// The factory tool's request values: reset, close the camera, and the
// chessboard (the node's dis_chessboard).
constexpr int kResetValue = 0x1111;
constexpr int kCloseValue = 0x2222;
constexpr int kChessboardValue = 255;

std::string Minified(const rapidjson::Value& value) {
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  value.Accept(writer);
  return text.GetString();
}

// A setting of the camera: {"pictures": DIR}, {"images": {"all": FILE}}.
Step CameraStep(const char* member, const char* inner, const std::string* value) {
  rapidjson::Document settings(rapidjson::kObjectType);
  auto& a = settings.GetAllocator();
  rapidjson::Value v = value == nullptr ? rapidjson::Value() : rapidjson::Value(value->c_str(), a);
  if (inner != nullptr) {
    rapidjson::Value object(rapidjson::kObjectType);
    object.AddMember(rapidjson::StringRef(inner), v, a);
    v = object;
  }
  settings.AddMember(rapidjson::StringRef(member), v, a);
  Step step;
  step.kind = Step::Kind::kCamera;
  step.value = JsonText::FromText(Minified(settings));
  return step;
}

Step NoteStep(const std::string& text) {
  Step step;
  step.kind = Step::Kind::kNote;
  step.text = text;
  return step;
}

// The factory tool's request with `value` on "CAMERACALI".
Step SendStep(int value) {
  Step step;
  step.kind = Step::Kind::kSend;
  step.topic = "CAMERACALI";
  step.value = JsonText::FromText("{\"distance\":" + std::to_string(value) + "}");
  return step;
}

// The steps that measure the camera from the folder's views, as the
// factory tool takes a chessboard set: for each view a reset, the view
// shown, the chessboard request repeated until the node relays the camera
// parameter node's answer; then the camera closed and the outcome checked.
std::vector<Step> ChessboardSteps(const std::shared_ptr<const ChessboardFolder>& folder) {
  const std::size_t count = folder->views.size();
  std::vector<Step> steps;
  steps.push_back(
      NoteStep("the chessboard step: the camera parameter node measures the camera "
               "from the " +
               std::to_string(count) + " views in " + folder->dir +
               "; the round's planes are worked out through it"));
  auto setting = std::make_shared<ResponderSetting>();
  setting->node = "ieparam";
  setting->mode = ResponderSetting::Mode::kCompute;
  setting->answer = JsonText::EmptyObject();
  Step responder;
  responder.kind = Step::Kind::kResponder;
  responder.responder = setting;
  steps.push_back(responder);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string view = folder->views[i];
    const std::string number = std::to_string(i + 1);
    steps.push_back(
        NoteStep("chessboard view " + number + " of " + std::to_string(count) + ": " + view));
    steps.push_back(SendStep(kResetValue));
    steps.push_back(CameraStep("images", "all", &view));
    Step repeat;
    repeat.kind = Step::Kind::kRepeat;
    repeat.repeated = std::make_shared<Step>(SendStep(kChessboardValue));
    repeat.until.topic = "CAMERACALIRES";
    repeat.until.fields = JsonText::FromText("{\"kind\":3}");
    repeat.every_ticks = 10;
    repeat.limit = 20;
    repeat.text =
        "chessboard view " + number + " (" + std::filesystem::path(view).filename().string() + ")";
    steps.push_back(repeat);
  }
  steps.push_back(CameraStep("images", "all", nullptr));
  steps.push_back(SendStep(kCloseValue));
  Step check;
  check.kind = Step::Kind::kCameraFromViews;
  check.views = folder;
  steps.push_back(check);
  return steps;
}

bool Computes(const Scenario& scenario, bool camera_parameters) {
  for (const Step& step : scenario.steps) {
    if (step.kind != Step::Kind::kResponder || !step.responder ||
        step.responder->mode != ResponderSetting::Mode::kCompute) {
      continue;
    }
    const bool ieparam = step.responder->node == "ieparam";
    if (ieparam == camera_parameters) return true;
  }
  return false;
}

}  // namespace

void ShowPictures(const std::string& dir, Scenario* scenario, std::ostream& notes) {
  std::vector<Step> first;
  const std::string pictures = dir;
  first.push_back(CameraStep("pictures", nullptr, &pictures));
  // The folder's own camera, when it holds one; else its chessboard views;
  // else the scenario's camera, if it names one.
  std::error_code error;
  const std::string camera = dir + "/camera.yaml";
  const std::string chessboard = dir + "/chessboard";
  const bool planes = Computes(*scenario, false);
  if (std::filesystem::is_regular_file(camera, error)) {
    scenario->camera_model = camera;
    if (HasChessboardFolder(dir)) {
      notes << "kivrun: note: " << camera << " is the round's camera; the chessboard views in "
            << chessboard << " are not played\n";
    }
  } else if (HasChessboardFolder(dir) && !Computes(*scenario, true)) {
    auto folder = std::make_shared<const ChessboardFolder>(ReadChessboardFolder(dir));
    scenario->chessboard = folder;
    for (Step& step : ChessboardSteps(folder)) first.push_back(std::move(step));
  } else if (HasChessboardFolder(dir)) {
    notes << "kivrun: note: " << scenario->path
          << " measures the camera from chessboard views of its own; those in " << chessboard
          << " are not played\n";
  } else if (planes && scenario->camera_model.empty()) {
    throw ChessboardFolderError(
        dir + " holds no camera model (camera.yaml) and no chessboard views (chessboard/), and " +
        scenario->path +
        " names no camera: the planes are worked out through the camera the pictures were taken "
        "with. Put its model in " +
        camera + ", or chessboard views with their board.json in " + chessboard +
        "/ (README, \"Try it on your own pictures\")");
  } else if (planes) {
    notes << "kivrun: note: " << dir
          << " holds no camera model (camera.yaml) and no chessboard views (chessboard/): the "
             "planes are worked out through the scenario's camera, "
          << scenario->camera_model
          << ", which took the pictures only if the camera simulator made them with it; for "
             "your own camera put its model in "
          << camera << ", or chessboard views with their board.json in " << chessboard << "/\n";
  }
  for (Step& step : first) step.number = 0;
  scenario->steps.insert(scenario->steps.begin(), first.begin(), first.end());
}

}  // namespace kivrun
