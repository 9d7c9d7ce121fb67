// sim-pictures, run as a program: the folder it writes is what the camera
// simulator shows at each distance, a round can be played on it (by default
// the whole factory round, distance check and all), and a bad command line,
// bad settings or an unwritable folder are refused. Each way a setting
// reaches the pictures is run once; the command lines, settings and views
// it refuses are read in process, case by case, by the code sim-pictures
// reads them with.
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
#include "tests/support/refusal_in_folder.h"
#include "tools/command_line.h"
#include "tools/kivrun/chessboard_folder.h"
#include "tools/sim_pictures/options.h"
#include "tools/sim_pictures/settings.h"

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
  const ProgramRun run = Run("--distances 5,12.5,30 out");
  ASSERT_EQ(run.status, 0) << run.err.size();
  EXPECT_EQ(run.out,
            "out/5/left.png\nout/5/right.png\nout/12.5/left.png\nout/12.5/right.png\n"
            "out/30/left.png\nout/30/right.png\n");
  for (double distance : {5.0, 12.5}) {
    const fs::path folder = dir_ / "out" / (distance == 5 ? "5" : "12.5");
    const cv::Mat left = cv::imread((folder / "left.png").string(), cv::IMREAD_UNCHANGED);
    const cv::Mat right = cv::imread((folder / "right.png").string(), cv::IMREAD_UNCHANGED);
    EXPECT_TRUE(Same(left, Shown("", distance, 1))) << distance;
    EXPECT_TRUE(Same(right, Shown("", distance, 8))) << distance;
  }

  // The folder serves the camera as recorded pictures.
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

// sim-pictures' command line, read in process: what it was asked for, or
// the message it refuses it with ("" when it takes it).
simpictures::Options Read(std::vector<std::string> args, bool* done = nullptr) {
  args.insert(args.begin(), "sim-pictures");
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  bool finished = false;
  return simpictures::ReadCommandLine(static_cast<int>(args.size()), argv.data(),
                                      done ? done : &finished);
}
std::string Refusal(const std::vector<std::string>& args) {
  try {
    Read(args);
    return "";
  } catch (const toolcli::UsageError& e) {
    return e.what();
  }
}

TEST(SimPicturesCommandLineTest, TheOptionsAreTaken) {
  const simpictures::Options options =
      Read({"--preset", "robot", "--settings", "s.json", "--distances", "5,27.5", "--sides",
            "right,other", "--format", "bmp", "--table", "app", "--exposure", "1900/48", "--views",
            "v.json", "out"});
  EXPECT_EQ(options.preset, "robot");
  EXPECT_EQ(options.settings, "s.json");
  EXPECT_EQ(options.distances, (std::vector<double>{5, 27.5}));
  EXPECT_EQ(options.sides, (std::vector<std::string>{"right", "other"}));
  EXPECT_EQ(options.format, "bmp");
  EXPECT_TRUE(options.app_table);
  EXPECT_FALSE(options.node_exposure);
  EXPECT_EQ(options.exposure.exposure, 1900);
  EXPECT_EQ(options.exposure.gain, 48);
  EXPECT_TRUE(options.chessboard);  // --views implies it
  EXPECT_EQ(options.views, "v.json");
  EXPECT_EQ(options.out, "out");
  EXPECT_TRUE(Read({"--distances", "none", "out"}).distances.empty());
}

TEST(SimPicturesCommandLineTest, BadCommandLinesAreRefused) {
  EXPECT_EQ(Refusal({}), "give the folder to write the pictures into");
  EXPECT_EQ(Refusal({"--distances", "5,x", "out"}),
            "--distances needs numbers above 0 and at most 10000 separated by commas, not '5,x'");
  EXPECT_EQ(Refusal({"--sides", "up", "out"}), "--sides needs left, right and/or other, not 'up'");
  EXPECT_EQ(Refusal({"--exposure", "1900", "out"}),
            "--exposure needs node or EXPOSURE/GAIN (as 1900/32), not '1900'");
  EXPECT_EQ(Refusal({"--table", "shop", "out"}), "--table needs factory or app, not 'shop'");
}

TEST(SimPicturesCommandLineTest, HelpAndVersionArePrintedAndDone) {
  bool done = false;
  testing::internal::CaptureStdout();
  Read({"--help"}, &done);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(done);
  EXPECT_EQ(out.rfind("usage: sim-pictures [options] OUTDIR", 0), 0u) << out;
  done = false;
  testing::internal::CaptureStdout();
  Read({"--version"}, &done);
  out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(done);
  EXPECT_EQ(out.rfind("sim-pictures ", 0), 0u) << out;
}

// What ApplySettings or ReadBoardViews throw, run from the test's folder
// as sim-pictures runs from its working folder; "" when nothing.
template <typename Action>
std::string RefusalIn(const fs::path& dir, const Action& read) {
  const std::string message = testsupport::RefusalInFolder(dir, read);
  sim::Reset();
  return message;
}

TEST_F(SimPicturesTest, BadCommandLinesSettingsAndFoldersAreRefused) {
  // Run as a program: the hint and the exit code of each kind of refusal.
  ProgramRun run = Run("");
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 2u);
  EXPECT_EQ(run.err[0], "sim-pictures: give the folder to write the pictures into");
  EXPECT_EQ(run.err[1], "Try 'sim-pictures --help' for usage.");
  run = Run(R"(--settings '{"scene": {"camera": {"fx": -1}}}' out)");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: camera sim: scene.camera.fx", 0), 0u) << run.err[0];
  ASSERT_EQ(std::system(("touch '" + (dir_ / "file").string() + "'").c_str()), 0);
  run = Run("--distances 5 file");
  EXPECT_EQ(run.status, 1);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: cannot make the folder 'file/5'", 0), 0u) << run.err[0];

  // A settings file that is not there.
  simpictures::Options options;
  options.settings = "missing.json";
  const std::string missing = RefusalIn(dir_, [&options] { simpictures::ApplySettings(options); });
  EXPECT_NE(missing.find("missing.json"), std::string::npos) << missing;
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

TEST_F(SimPicturesTest, BadPresetsAndViewsAreRefused) {
  simpictures::Options options;
  options.preset = "robt";
  EXPECT_EQ(RefusalIn(dir_, [&options] { simpictures::ApplySettings(options); }),
            "camera sim: preset must be harsh, ideal or robot, or a file ending in .json (not "
            "'robt')");
  ASSERT_EQ(std::system(("echo '{\"board\": {}, \"views\": [{\"x\": 0, \"tilt\": 3}]}' > '" +
                         (dir_ / "views.json").string() + "'")
                            .c_str()),
            0);
  EXPECT_EQ(RefusalIn(dir_, [] { simpictures::ReadBoardViews("views.json"); }),
            "views.json: views[0]: tilt is not a pose member (x, y, z, yaw, pitch, roll)");
  ASSERT_EQ(std::system(("echo '{\"board\": {}, \"views\": [{\"x\": 40}]}' > '" +
                         (dir_ / "views.json").string() + "'")
                            .c_str()),
            0);
  const ProgramRun run = Run("--preset robot --views views.json --distances none out");
  EXPECT_EQ(run.status, 3);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("sim-pictures: view 1: camera sim: scene.board must be in view", 0),
            0u)
      << run.err[0];
}

TEST_F(SimPicturesTest, HelpIsWrittenToStandardOutput) {
  const ProgramRun run = Run("--help");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out.rfind("usage: sim-pictures [options] OUTDIR", 0), 0u);
  EXPECT_TRUE(run.err.empty());
}

}  // namespace
