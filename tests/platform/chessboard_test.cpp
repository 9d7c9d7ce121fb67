// The chessboard target: OpenCV finds every corner of every shipped view
// (tools/sim_pictures/chessboard_views.json) under every preset, at the
// node's chessboard exposure, where the truth's board pose and camera put
// them; a camera calibration on the views recovers the camera; a board out
// of view is refused. Under an emulator, fewer views on the presets other
// than the robot's.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/calc/emulated.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A member of a pose, 0 when left out.
double PoseMember(const rapidjson::Value& pose, const char* member) {
  return pose.HasMember(member) ? pose[member].GetDouble() : 0.0;
}

// The camera setting that shows the board `board` (cols, rows, square,
// margin) at `pose`.
std::string BoardSetting(const rapidjson::Value& board, const rapidjson::Value& pose) {
  char text[400];
  std::snprintf(text, sizeof text,
                R"({"scene": {"board": {"on": true, "cols": %d, "rows": %d, "square": %g,
                "margin": %g, "x": %g, "y": %g, "z": %g, "yaw": %g, "pitch": %g,
                "roll": %g}}})",
                board["cols"].GetInt(), board["rows"].GetInt(), board["square"].GetDouble(),
                board["margin"].GetDouble(), PoseMember(pose, "x"), PoseMember(pose, "y"),
                PoseMember(pose, "z"), PoseMember(pose, "yaw"), PoseMember(pose, "pitch"),
                PoseMember(pose, "roll"));
  return text;
}

// The shipped views, each as the camera setting of its board.
std::vector<std::string> ShippedViews() {
  rapidjson::Document doc;
  doc.Parse(ReadFile(LASERCALI_SOURCE_DIR "/tools/sim_pictures/chessboard_views.json").c_str());
  EXPECT_FALSE(doc.HasParseError());
  std::vector<std::string> views;
  for (const rapidjson::Value& pose : doc["views"].GetArray()) {
    views.push_back(BoardSetting(doc["board"], pose));
  }
  return views;
}

cv::Mat CameraMatrix(const sim::CameraModel& c) {
  return (cv::Mat_<double>(3, 3) << c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1);
}
cv::Mat Distortion(const sim::CameraModel& c) {
  return (cv::Mat_<double>(1, 5) << c.k1, c.k2, c.p1, c.p2, c.k3);
}

// Where the truth puts the board's inner corners in the picture.
std::vector<cv::Point2d> TrueCorners(const sim::SceneTruth& truth) {
  std::vector<cv::Point3d> object;
  for (int j = 0; j < truth.board.rows; ++j) {
    for (int i = 0; i < truth.board.cols; ++i) {
      object.emplace_back(i * truth.board.square, j * truth.board.square, 0);
    }
  }
  cv::Mat r(3, 3, CV_64F), rvec;
  for (int a = 0; a < 3; ++a) {
    for (int b = 0; b < 3; ++b) r.at<double>(a, b) = truth.board.pose.rotation[a][b];
  }
  cv::Rodrigues(r, rvec);
  const cv::Mat tvec = (cv::Mat_<double>(3, 1) << truth.board.pose.translation[0],
                        truth.board.pose.translation[1], truth.board.pose.translation[2]);
  std::vector<cv::Point2d> image;
  cv::projectPoints(object, rvec, tvec, CameraMatrix(truth.camera), Distortion(truth.camera),
                    image);
  return image;
}

class ChessboardTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }

  // The frame the camera shows at the node's chessboard setting (8000, 32).
  cv::Mat ChessboardFrame() {
    sunxi_cam::SunxiCam camera;
    EXPECT_TRUE(camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480));
    EXPECT_TRUE(camera.setExposureGain(8000, 32));
    cv::Mat frame = cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(1))).clone();
    camera.CloseCamera();
    return frame;
  }
};

// Under an emulator or the sanitizers (LASERCALI_EMULATED=1), many times
// slower, every view and the calibration on the robot's camera, the one the
// node's chain uses; on the other presets the first view and the four
// pushed into the picture's corners (9 to 12), and no calibration.
TEST_F(ChessboardTest, OpenCvFindsEveryCornerOfEveryShippedViewWhereTheTruthPutsIt) {
  const std::vector<std::string> views = ShippedViews();
  ASSERT_EQ(views.size(), 16u);
  for (const char* preset : {"ideal", "robot", "harsh"}) {
    const bool every_view = !calctest::Emulated() || std::string(preset) == "robot";
    std::vector<std::vector<cv::Point3f>> object_points;
    std::vector<std::vector<cv::Point2f>> image_points;
    double worst = 0;
    for (std::size_t n = 0; n < views.size(); ++n) {
      if (!every_view && n != 0 && (n < 8 || n > 11)) continue;
      APPLY_SIM(std::string(R"({"preset": ")") + preset + "\"}");
      APPLY_SIM(views[n]);
      const cv::Mat frame = ChessboardFrame();
      std::vector<cv::Point2f> corners;
      // Adaptive thresholds and quads filtered: the default flags
      // (thresholds and a normalised image) find every view too, ten times
      // slower on the noisy presets.
      ASSERT_TRUE(cv::findChessboardCorners(
          frame, cv::Size(9, 6), corners, cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_FILTER_QUADS))
          << preset << ", view " << n + 1;
      ASSERT_EQ(corners.size(), 54u);
      cv::cornerSubPix(frame, corners, cv::Size(5, 5), cv::Size(-1, -1),
                       cv::TermCriteria(cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 50, 1e-4));
      // Each found corner lies on a true one (OpenCV may start from either end).
      const std::vector<cv::Point2d> truth = TrueCorners(sim::Truth());
      std::vector<cv::Point3f> object;
      for (const cv::Point2f& c : corners) {
        std::size_t nearest = 0;
        for (std::size_t k = 1; k < truth.size(); ++k) {
          if (cv::norm(cv::Point2d(c) - truth[k]) < cv::norm(cv::Point2d(c) - truth[nearest])) {
            nearest = k;
          }
        }
        const double error = cv::norm(cv::Point2d(c) - truth[nearest]);
        worst = std::max(worst, error);
        EXPECT_LT(error, 0.3) << preset << ", view " << n + 1;
        const float sq = static_cast<float>(sim::Truth().board.square);
        object.emplace_back(static_cast<float>(nearest % 9) * sq,
                            static_cast<float>(nearest / 9) * sq, 0.0f);
      }
      object_points.push_back(object);
      image_points.push_back(corners);
    }
    if (!every_view) {
      std::printf("%s: worst corner %.3f px in %zu views\n", preset, worst, image_points.size());
      continue;
    }
    // A calibration on the views recovers the camera.
    const sim::CameraModel c = sim::Truth().camera;
    cv::Mat k, dist;
    std::vector<cv::Mat> rvecs, tvecs;
    const double rms =
        cv::calibrateCamera(object_points, image_points, cv::Size(640, 480), k, dist, rvecs, tvecs);
    std::printf(
        "%s: worst corner %.3f px; calibration rms %.3f px, fx %.2f (%.2f), fy %.2f "
        "(%.2f), cx %.2f (%.2f), cy %.2f (%.2f), k1 %.4f (%.4f), k2 %.4f (%.4f)\n",
        preset, worst, rms, k.at<double>(0, 0), c.fx, k.at<double>(1, 1), c.fy, k.at<double>(0, 2),
        c.cx, k.at<double>(1, 2), c.cy, dist.at<double>(0), c.k1, dist.at<double>(1), c.k2);
    EXPECT_LT(rms, 0.2) << preset;
    EXPECT_NEAR(k.at<double>(0, 0), c.fx, 0.005 * c.fx) << preset;
    EXPECT_NEAR(k.at<double>(1, 1), c.fy, 0.005 * c.fy) << preset;
    EXPECT_NEAR(k.at<double>(0, 2), c.cx, 2.0) << preset;
    EXPECT_NEAR(k.at<double>(1, 2), c.cy, 2.0) << preset;
    EXPECT_NEAR(dist.at<double>(0), c.k1, 0.02) << preset;
  }
}

// The shipped scenario of a camera calibration's views plays the shipped
// views, in their order, on the robot's camera.
TEST_F(ChessboardTest, TheShippedScenarioPlaysTheShippedViews) {
  rapidjson::Document scenario;
  scenario.Parse(ReadFile(LASERCALI_SOURCE_DIR "/scenarios/chessboard_views_robot.json").c_str());
  ASSERT_FALSE(scenario.HasParseError());
  std::vector<std::string> played;
  bool robot = false;
  for (const rapidjson::Value& step : scenario["steps"].GetArray()) {
    if (!step.HasMember("camera")) continue;
    const rapidjson::Value& camera = step["camera"];
    if (camera.HasMember("preset")) robot = std::string(camera["preset"].GetString()) == "robot";
    if (!camera.HasMember("scene") || !camera["scene"].HasMember("board")) continue;
    const rapidjson::Value& b = camera["scene"]["board"];
    EXPECT_TRUE(b["on"].GetBool());
    played.push_back(BoardSetting(b, b));
  }
  EXPECT_TRUE(robot);
  EXPECT_EQ(played, ShippedViews());
}

TEST_F(ChessboardTest, ABoardOutOfViewIsRefused) {
  APPLY_SIM(R"({"preset": "robot"})");
  const std::string outside = "camera sim: scene.board must be in view: its squares' outline at ";
  // Too far to the right, too close, facing away.
  EXPECT_EQ(testsupport::ConfigureSim(R"({"scene": {"board": {"on": true, "x": 30, "z": 40}}})"),
            outside + "(-1.562, -8.75) cm from its centre is outside the picture");
  EXPECT_EQ(testsupport::ConfigureSim(R"({"scene": {"board": {"on": true, "z": 10}}})"),
            outside + "(-12.5, -8.75) cm from its centre is outside the picture");
  EXPECT_EQ(testsupport::ConfigureSim(
                R"({"scene": {"board": {"on": true, "x": 30, "z": 20, "yaw": -70}}})"),
            "camera sim: scene.board must be in view: it faces away from the camera");
  EXPECT_EQ(testsupport::ConfigureSim(R"({"scene": {"board": {"on": true, "cols": 1}}})"),
            "camera sim: scene.board.cols must be between 2 and 50");
  EXPECT_FALSE(sim::GetScene().board.on);  // nothing changed
  // A board that is off may stand anywhere.
  APPLY_SIM(R"({"scene": {"board": {"x": 300}}})");
}

TEST_F(ChessboardTest, WhileTheBoardIsOnTheLasersDrawNothing) {
  APPLY_SIM(R"({"preset": "robot", "scene": {"board": {"on": true}}})");
  const cv::Mat left = cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(1))).clone();
  const cv::Mat none = cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(0))).clone();
  // The same board; only the noise differs between laser fields.
  EXPECT_LT(std::fabs(cv::mean(left)[0] - cv::mean(none)[0]), 0.1);
  EXPECT_TRUE(sim::Truth().board.on);
}

}  // namespace
