// sim-pictures, run as a program: the folder it writes is what the camera
// simulator shows at each distance, a round can be played on it (by default
// the whole factory round, distance check and all), and a bad command line,
// bad settings or an unwritable folder are refused.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/support/program_run.h"
#include "tools/kivrun/chessboard_folder.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;
using testsupport::ProgramRun;

class SimPicturesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/sim_pictures_test_XXXXXX";
    dir_ = mkdtemp(name);
    sim::Reset();
  }
  void TearDown() override {
    fs::remove_all(dir_);
    sim::Reset();
  }

  ProgramRun Run(const std::string& args) {
    return testsupport::RunIn(dir_, SIM_PICTURES " " + args);
  }

  // The simulator's own luminance for that laser at that distance.
  static cv::Mat Shown(const std::string& settings, double distance, uint64_t laser) {
    sim::Reset();
    if (!settings.empty()) {
      rapidjson::Document json;
      json.Parse(settings.c_str());
      sim::Configure(json);
    }
    sim::SetDistance(distance);
    return cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser))).clone();
  }

  static bool Same(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
  }

  fs::path dir_;
};

TEST_F(SimPicturesTest, WritesWhatTheCameraShowsAtEachDistance) {
  const ProgramRun run = Run("--distances 5,12.5 out");
  ASSERT_EQ(run.status, 0) << run.err.size();
  EXPECT_EQ(run.out, "out/5/left.png\nout/5/right.png\nout/12.5/left.png\nout/12.5/right.png\n");
  for (double distance : {5.0, 12.5}) {
    const fs::path folder = dir_ / "out" / (distance == 5 ? "5" : "12.5");
    const cv::Mat left = cv::imread((folder / "left.png").string(), cv::IMREAD_UNCHANGED);
    const cv::Mat right = cv::imread((folder / "right.png").string(), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(Same(left, Shown("", distance, 1))) << distance;
    EXPECT_TRUE(Same(right, Shown("", distance, 8))) << distance;
  }
}

TEST_F(SimPicturesTest, SettingsSidesAndFormatAreTaken) {
  const std::string settings = R"({"scene": {"second_stripe": 40}})";
  const ProgramRun run =
      Run("--settings '" + settings + "' --distances 20 --sides right,other --format bmp out");
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "out/20/right.bmp\nout/20/other.bmp\n");
  EXPECT_FALSE(fs::exists(dir_ / "out" / "20" / "left.bmp"));
  const cv::Mat right = cv::imread((dir_ / "out/20/right.bmp").string(), cv::IMREAD_GRAYSCALE);
  EXPECT_TRUE(Same(right, Shown(settings, 20, 8)));
  EXPECT_FALSE(Same(right, Shown("", 20, 8)));  // the second stripe is there
}

TEST_F(SimPicturesTest, TheFolderServesTheCameraAsRecordedPictures) {
  ASSERT_EQ(Run("--distances 30 out").status, 0);
  rapidjson::Document json;
  const std::string settings = R"({"distance": 30, "pictures": ")" + (dir_ / "out").string() +
                               R"(", "scene": {"background": {"seed": 7}}})";
  json.Parse(settings.c_str());
  sim::Reset();
  sim::Configure(json);
  // A copy: Shown() resets the simulator, which drops its frames.
  const cv::Mat shown = cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(1))).clone();
  EXPECT_TRUE(Same(shown, Shown("", 30, 1)));  // the default scene, not the seed-7 one
}

TEST_F(SimPicturesTest, TheDefaultFolderServesAWholeFactoryRound) {
  const ProgramRun run = Run("out");
  ASSERT_EQ(run.status, 0);
  std::string listed;
  for (const char* distance : {"5", "10", "15", "20", "25", "27.5", "30", "35", "40", "45"}) {
    for (const char* side : {"left", "right"}) {
      listed += "out/" + std::string(distance) + "/" + side + ".png\n";
    }
  }
  EXPECT_EQ(run.out, listed);  // the factory distances and the distance check's wall

  const std::string command = "cd '" + dir_.string() +
                              "' && " KIVRUN
                              " --private-tmp --pictures out --log log.jsonl " LASERCALI_SOURCE_DIR
                              "/scenarios/factory_compute_round.json 2>err.txt";
  const int raw = std::system(command.c_str());
  const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  if (status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(status, 0) << testsupport::ReadFile(dir_ / "err.txt");
  const std::string log = testsupport::ReadFile(dir_ / "log.jsonl");
  EXPECT_NE(log.find(R"("event":"answer","node":"distance","action":"answer")"), std::string::npos);
}

TEST_F(SimPicturesTest, BadCommandLinesSettingsAndFoldersAreRefused) {
  ProgramRun run = Run("");
  EXPECT_EQ(run.status, 2);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0], "sim-pictures: give the folder to write the pictures into");
  run = Run("--distances 5,x out");
  EXPECT_EQ(run.status, 2);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0],
            "sim-pictures: --distances needs numbers above 0 and at most 10000 separated by "
            "commas, not '5,x'");
  run = Run("--sides up out");
  EXPECT_EQ(run.status, 2);
  run = Run(R"(--settings '{"scene": {"camera": {"fx": -1}}}' out)");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: camera sim: scene.camera.fx", 0), 0u) << run.err[0];
  run = Run("--settings missing.json out");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_NE(run.err[0].find("missing.json"), std::string::npos) << run.err[0];
  ASSERT_EQ(std::system(("touch '" + (dir_ / "file").string() + "'").c_str()), 0);
  run = Run("--distances 5 file");
  EXPECT_EQ(run.status, 1);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: cannot make the folder 'file/5'", 0), 0u) << run.err[0];
}

// What the camera shows under `settings` at that distance with the sensor
// at exposure / gain.
cv::Mat ShownAt(const std::string& settings, double distance, uint64_t laser, int exposure,
                int gain) {
  sim::Reset();
  rapidjson::Document json;
  json.Parse(settings.c_str());
  sim::Configure(json);
  sim::SetDistance(distance);
  sunxi_cam::SunxiCam camera;
  EXPECT_TRUE(camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480));
  EXPECT_TRUE(camera.setExposureGain(exposure, gain));
  cv::Mat shown = cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser))).clone();
  camera.CloseCamera();
  return shown;
}

TEST_F(SimPicturesTest, APresetsPicturesAreTakenAtTheNodesExposure) {
  ASSERT_EQ(Run("--preset robot --distances 10,27.5 --sides left out").status, 0);
  const cv::Mat at10 = cv::imread((dir_ / "out/10/left.png").string(), cv::IMREAD_UNCHANGED);
  // The factory table: 1900 / 4 at 10 cm; the distance check's 1200 / 4.
  EXPECT_TRUE(Same(at10, ShownAt(R"({"preset": "robot"})", 10, 1, 1900, 4)));
  EXPECT_FALSE(Same(at10, ShownAt(R"({"preset": "robot"})", 10, 1, 1900, 32)));
  const cv::Mat check = cv::imread((dir_ / "out/27.5/left.png").string(), cv::IMREAD_UNCHANGED);
  EXPECT_TRUE(Same(check, ShownAt(R"({"preset": "robot"})", 27.5, 1, 1200, 4)));
  // The app table: 600 / 4 at 10 cm; or a setting given.
  ASSERT_EQ(Run("--preset robot --table app --distances 10 --sides left app").status, 0);
  EXPECT_TRUE(Same(cv::imread((dir_ / "app/10/left.png").string(), cv::IMREAD_UNCHANGED),
                   ShownAt(R"({"preset": "robot"})", 10, 1, 600, 4)));
  ASSERT_EQ(Run("--preset harsh --exposure 1900/48 --distances 30 --sides right given").status, 0);
  EXPECT_TRUE(Same(cv::imread((dir_ / "given/30/right.png").string(), cv::IMREAD_UNCHANGED),
                   ShownAt(R"({"preset": "harsh"})", 30, 8, 1900, 48)));
}

TEST_F(SimPicturesTest, ChessboardViewsComeWithTheBoardsGeometry) {
  const ProgramRun run = Run("--preset robot --chessboard --distances none out");
  ASSERT_EQ(run.status, 0);
  std::string listed;
  char name[64];
  for (int i = 1; i <= 16; ++i) {
    std::snprintf(name, sizeof name, "out/chessboard/%02d.png\n", i);
    listed += name;
  }
  EXPECT_EQ(run.out, listed + "out/chessboard/board.json\n");
  rapidjson::Document board;
  board.Parse<rapidjson::kParseFullPrecisionFlag>(
      testsupport::ReadFile(dir_ / "out/chessboard/board.json").c_str());
  ASSERT_FALSE(board.HasParseError());
  EXPECT_EQ(board["board"]["columns"].GetInt(), 9);
  EXPECT_EQ(board["board"]["rows"].GetInt(), 6);
  EXPECT_EQ(board["board"]["square_cm"].GetDouble(), 2.5);
  EXPECT_EQ(board["board"]["margin_cm"].GetDouble(), 2.5);
  EXPECT_EQ(board["picture"]["exposure"].GetInt(), 8000);  // the node's chessboard setting
  EXPECT_EQ(board["camera"]["distortion"][0].GetDouble(), -0.3);
  ASSERT_EQ(board["views"].Size(), 16u);
  // View 2: the board 40 cm ahead, turned 40 degrees about the vertical.
  const rapidjson::Value& view = board["views"][1];
  EXPECT_STREQ(view["file"].GetString(), "02.png");
  const std::string setting =
      R"({"preset": "robot", "scene": {"board": {"on": true, "z": 40, "yaw": 40}}})";
  EXPECT_TRUE(Same(cv::imread((dir_ / "out/chessboard/02.png").string(), cv::IMREAD_UNCHANGED),
                   ShownAt(setting, 30, 1, 8000, 32)));
  const sim::SceneTruth truth = sim::Truth();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(view["translation"][i].GetDouble(), truth.board.pose.translation[i] + 0.0);
    for (int j = 0; j < 3; ++j) {
      EXPECT_EQ(view["rotation"][i][j].GetDouble(), truth.board.pose.rotation[i][j] + 0.0);
    }
  }
  // Where the fixture held it on the robot: the board's frame carried into
  // the robot's by the camera's pose, as kivrun tells the camera parameter
  // node in a simulated round.
  const kivrun::Placement placement = kivrun::PlacementOf(truth);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(view["placement"]["origin_cm"][i].GetDouble(), placement.origin[i] + 0.0);
    EXPECT_EQ(view["placement"]["x_axis"][i].GetDouble(), placement.x_axis[i] + 0.0);
    EXPECT_EQ(view["placement"]["y_axis"][i].GetDouble(), placement.y_axis[i] + 0.0);
  }
  // The robot's camera 40 cm before the board: the board's origin lies
  // ahead of the robot, its rows run to the robot's right.
  EXPECT_GT(placement.origin[0], 30);
  EXPECT_LT(placement.x_axis[1], -0.5);
  EXPECT_FALSE(fs::exists(dir_ / "out" / "5"));  // --distances none
}

TEST_F(SimPicturesTest, BadPresetsExposuresAndViewsAreRefused) {
  ProgramRun run = Run("--preset robt out");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0],
            "sim-pictures: camera sim: preset must be harsh, ideal or robot, or a file ending in "
            ".json (not 'robt')");
  run = Run("--exposure 1900 out");
  EXPECT_EQ(run.status, 2);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0],
            "sim-pictures: --exposure needs node or EXPOSURE/GAIN (as 1900/32), not '1900'");
  EXPECT_EQ(Run("--table shop out").status, 2);
  ASSERT_EQ(std::system(("echo '{\"board\": {}, \"views\": [{\"x\": 0, \"tilt\": 3}]}' > '" +
                         (dir_ / "views.json").string() + "'")
                            .c_str()),
            0);
  run = Run("--views views.json --distances none out");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0],
            "sim-pictures: views.json: views[0]: tilt is not a pose member (x, y, z, yaw, pitch, "
            "roll)");
  ASSERT_EQ(std::system(("echo '{\"board\": {}, \"views\": [{\"x\": 40}]}' > '" +
                         (dir_ / "views.json").string() + "'")
                            .c_str()),
            0);
  run = Run("--preset robot --views views.json --distances none out");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: view 1: camera sim: scene.board must be in view", 0),
            0u)
      << run.err[0];
}

TEST_F(SimPicturesTest, HelpAndVersion) {
  ProgramRun run = Run("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("usage: sim-pictures [options] OUTDIR", 0), 0u);
  run = Run("--version");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("sim-pictures ", 0), 0u);
}

}  // namespace
