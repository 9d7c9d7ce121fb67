// sim-pictures: writes the pictures the camera simulator shows, for a list
// of distances, as a picture folder a round can be played on (the camera
// setting "pictures", kivrun --pictures), and chessboard views for a camera
// calibration.
//
// usage: sim-pictures [options] OUTDIR
// It applies the preset and the camera settings given (docs/camera-sim.md),
// then for each distance (by default the factory distances 5 to 45 and the
// shipped rounds' distance check at 27.5) sets the wall there and writes
// OUTDIR/<distance>/<side>.<format> for each side: the luminance of a left
// (laser field 1), right (8) or other (0) frame, 640 x 480 gray, at the
// exposure and gain the node chooses for that distance (or those given).
// With --chessboard it also writes OUTDIR/chessboard/<NN>.<format>, one a
// view, at the node's chessboard setting, and OUTDIR/chessboard/board.json.
// A line per file on standard output.
//
// Exit codes: 0 every picture written; 1 a picture could not be written (the
// message names it); 2 bad command line; 3 bad settings or views (the
// message names the member or the file).
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
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tools/command_line.h"
#include "tools/kivrun/output_file.h"
#include "tools/kivrun/scenario.h"
#include "tools/sim_pictures/chessboard.h"
#include "tools/sim_pictures/node_setting.h"
#include "tools/sim_pictures/options.h"
#include "tools/sim_pictures/settings.h"
#include "tools/version.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;
using simpictures::kProgram;
using simpictures::Options;

constexpr int kOk = 0, kWriteError = 1, kUsageError = 2, kSettingsError = 3;

// A distance as the folder name the simulator looks for: "35", "12.5".
std::string DistanceName(double distance) {
  char text[32];
  std::snprintf(text, sizeof text, "%.10g", distance);
  return text;
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

// Hands exposure and gain to the sensor; "" or what went wrong.
std::string SetSensor(sunxi_cam::SunxiCam* camera, const simpictures::Setting& setting) {
  if (camera->setExposureGain(setting.exposure, setting.gain)) return "";
  return "the simulated camera refuses exposure " + std::to_string(setting.exposure) +
         " and gain " + std::to_string(setting.gain) +
         " (faults.set_exposure_gain in the settings?)";
}

// Makes `folder`; "" or what went wrong.
std::string MakeFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error) return "";
  return "cannot make the folder '" + folder.string() + "': " + error.message();
}

int WriteDistances(const Options& options, sunxi_cam::SunxiCam* camera) {
  for (double distance : options.distances) {
    const fs::path folder = fs::path(options.out) / DistanceName(distance);
    const std::string made = MakeFolder(folder);
    if (!made.empty()) {
      std::cerr << kProgram << ": " << made << "\n";
      return kWriteError;
    }
    sim::SetDistance(distance);
    const std::string refused = SetSensor(
        camera, options.node_exposure ? simpictures::NodeSetting(distance, options.app_table)
                                      : options.exposure);
    if (!refused.empty()) {
      std::cerr << kProgram << ": " << refused << "\n";
      return kSettingsError;
    }
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
  return kOk;
}

int WriteChessboard(const Options& options, const simpictures::BoardViews& views,
                    sunxi_cam::SunxiCam* camera) {
  const fs::path folder = fs::path(options.out) / "chessboard";
  const std::string made = MakeFolder(folder);
  if (!made.empty()) {
    std::cerr << kProgram << ": " << made << "\n";
    return kWriteError;
  }
  const simpictures::Setting setting = options.node_exposure
                                           ? simpictures::NodeChessboardSetting(options.app_table)
                                           : options.exposure;
  std::vector<simpictures::WrittenView> written;
  for (std::size_t i = 0; i < views.settings.size(); ++i) {
    try {
      sim::Configure(*kivrun::ParseJsonText(views.settings[i], "view"));
    } catch (const std::exception& error) {
      std::cerr << kProgram << ": view " << i + 1 << ": " << error.what() << "\n";
      return kSettingsError;
    }
    const std::string refused = SetSensor(camera, setting);
    if (!refused.empty()) {
      std::cerr << kProgram << ": " << refused << "\n";
      return kSettingsError;
    }
    char name[32];
    std::snprintf(name, sizeof name, "%02zu.%s", i + 1, options.format.c_str());
    const cv::Mat picture(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(1)));
    const std::string path = (folder / name).string();
    const std::string problem = Write(path, picture, options.format);
    if (!problem.empty()) {
      std::cerr << kProgram << ": cannot write '" << path << "': " << problem << "\n";
      return kWriteError;
    }
    std::cout << path << "\n";
    written.push_back({name, sim::Truth()});
  }
  const std::string json = simpictures::BoardJson(views, written, setting.exposure, setting.gain);
  const std::string path = (folder / "board.json").string();
  kivrun::OutputFile file(path);
  std::ostream out(&file);
  out << json;
  out.flush();
  if (!file.Close()) {
    std::cerr << kProgram << ": cannot write '" << path << "': " << file.reason() << "\n";
    return kWriteError;
  }
  std::cout << path << "\n";
  return kOk;
}

int WriteAll(const Options& options, const simpictures::BoardViews& views,
             sunxi_cam::SunxiCam* camera) {
  const int status = WriteDistances(options, camera);
  if (status != kOk || !options.chessboard) return status;
  return WriteChessboard(options, views, camera);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    bool done = false;
    options = simpictures::ReadCommandLine(argc, argv, &done);
    if (done) return std::cout.flush() ? kOk : kWriteError;
  } catch (const toolcli::UsageError& error) {
    toolcli::ReportUsageError(std::cerr, kProgram, error.what());
    return kUsageError;
  }

  sim::Reset();
  simpictures::BoardViews views;
  try {
    simpictures::ApplySettings(options);
    if (options.chessboard) views = simpictures::ReadBoardViews(options.views);
  } catch (const std::exception& error) {
    std::cerr << kProgram << ": " << error.what() << "\n";
    return kSettingsError;
  }

  // The camera stays open while the pictures are taken: exposure and gain
  // reach the sensor through it, as the node's do.
  sunxi_cam::SunxiCam camera;
  if (!camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, sim::kWidth, sim::kHeight)) {
    std::cerr << kProgram
              << ": the simulated camera does not open (faults.open in the settings?)\n";
    return kSettingsError;
  }
  const int status = WriteAll(options, views, &camera);
  camera.CloseCamera();
  if (status != kOk) return status;
  std::cout.flush();
  return std::cout ? kOk : kWriteError;
}
