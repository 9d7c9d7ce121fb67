// kivrun --pictures DIR with chessboard views, run as a program: the camera
// measured from the simulator's views of the robot's camera comes close to
// the truth and the plane round goes on through it; a view without a board
// is named with its file; views that give no camera, a folder with neither
// a camera nor views, and a broken board.json stop the round with code 7.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>

#include "tests/support/program_run.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ProgramRun;

class KivrunChessboardTest : public ::testing::Test {
 protected:
  // The robot's pictures and chessboard views, made once.
  static void SetUpTestSuite() {
    char name[] = "/tmp/kivrun_chessboard_test_XXXXXX";
    made_ = mkdtemp(name);
    const std::string command =
        SIM_PICTURES " --preset robot --chessboard '" + (made_ / "robot").string() + "' >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  static void TearDownTestSuite() { fs::remove_all(made_); }

  void SetUp() override {
    char name[] = "/tmp/kivrun_chessboard_case_XXXXXX";
    dir_ = mkdtemp(name);
    fs::copy(made_ / "robot", dir_ / "pictures", fs::copy_options::recursive);
  }
  void TearDown() override { fs::remove_all(dir_); }

  ProgramRun Kivrun(const std::string& args) {
    return testsupport::RunIn(dir_, KIVRUN " --private-tmp " + args);
  }

  // A scenario on the robot's camera with the computing plane node (and the
  // factory round when `round`): steps after the picture folder's own.
  void Scenario(bool round, const std::string& camera_model = "") {
    std::ostringstream s;
    s << R"({"config_file": ")" LASERCALI_SOURCE_DIR R"(/scenarios/lasercali.json", )";
    if (!camera_model.empty()) s << R"("camera_model": ")" << camera_model << R"(", )";
    s << R"("steps": [{"camera": {"preset": "robot"}}, {"responder": "plane", "compute": true})";
    if (round) {
      s << R"(, {"responder": "check", "compute": true}, {"send": "CAMERACALI", "fields": {"distance": 4369}})";
      for (int d = 5; d <= 45; d += 5) {
        s << R"(, {"camera": {"distance": )" << d
          << R"(}}, {"repeat": {"send": "CAMERACALI", "fields": {"distance": )" << d
          << R"(}}, "until": {"topic": "CAMERACALIRES", "fields": {"kind": 2, "distance": )" << d
          << R"(}}, "every_ticks": 10, "limit": 20})";
      }
      s << R"(, {"send": "CAMERACALI", "fields": {"distance": 0}}, {"wait": {"topic": "CAMERACALIRES", "fields": {"kind": 4, "plane_result": 1}}, "within_ticks": 10})";
    }
    s << "]}";
    std::ofstream(dir_ / "s.json") << s.str();
  }

  // The answer events of `node` in the log.
  std::vector<rapidjson::Document> Answers(const std::string& node) {
    std::vector<rapidjson::Document> answers;
    for (const std::string& line : testsupport::Lines(testsupport::ReadFile(dir_ / "log.jsonl"))) {
      if (line.find("\"event\":\"answer\",\"node\":\"" + node + "\"") == std::string::npos) {
        continue;
      }
      answers.emplace_back();
      answers.back().Parse(line.c_str());
    }
    return answers;
  }

  // Keeps the first `count` views and their placements.
  void KeepViews(int count) {
    const fs::path board = dir_ / "pictures/chessboard/board.json";
    rapidjson::Document doc;
    doc.Parse(testsupport::ReadFile(board).c_str());
    rapidjson::Value& views = doc["views"];
    while (views.Size() > static_cast<rapidjson::SizeType>(count)) {
      fs::remove(dir_ / "pictures/chessboard" / views[views.Size() - 1]["file"].GetString());
      views.PopBack();
    }
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    doc.Accept(writer);
    std::ofstream(board) << text.GetString();
  }

  // A view that shows no board: a grey picture.
  void Blank(const std::string& view) {
    cv::imwrite((dir_ / "pictures/chessboard" / view).string(),
                cv::Mat(480, 640, CV_8UC1, cv::Scalar(90)));
  }

  static std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }

  static fs::path made_;
  fs::path dir_;
};

fs::path KivrunChessboardTest::made_;

TEST_F(KivrunChessboardTest, TheCameraFromTheViewsIsCloseToTheTruthAndThePlanesComeThroughIt) {
  Scenario(true);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  ASSERT_EQ(run.status, 0) << Joined(run.err);
  const std::vector<rapidjson::Document> cameras = Answers("ieparam");
  ASSERT_EQ(cameras.size(), 16u);
  // The last view's answer: the camera, beside the truth sim-pictures
  // wrote into board.json (the robot preset's lens, 5 cm up, 10 degrees down).
  const rapidjson::Document& last = cameras.back();
  ASSERT_TRUE(last.HasMember("camera")) << Joined(run.err);
  EXPECT_EQ(last["fields"]["ieparam3"].GetInt(), 1);
  rapidjson::Document board;
  board.Parse(testsupport::ReadFile(dir_ / "pictures/chessboard/board.json").c_str());
  const rapidjson::Value& truth = board["camera"];
  const rapidjson::Value& camera = last["camera"];
  const auto error = [&](const char* key) {
    return std::fabs(camera[key].GetDouble() - truth[key].GetDouble());
  };
  EXPECT_LT(error("fx"), 0.003 * truth["fx"].GetDouble());
  EXPECT_LT(error("fy"), 0.003 * truth["fy"].GetDouble());
  EXPECT_LT(error("cx"), 1.0);
  EXPECT_LT(error("cy"), 1.0);
  EXPECT_LT(std::fabs(camera["k1"].GetDouble() - truth["distortion"][0].GetDouble()), 0.01);
  EXPECT_LT(std::fabs(camera["height_cm"].GetDouble() - 5), 0.05);
  EXPECT_LT(std::fabs(camera["pitch_deg"].GetDouble() - 10), 0.2);
  // The plane node fitted both planes through that camera.
  const std::vector<rapidjson::Document> planes = Answers("plane");
  ASSERT_EQ(planes.size(), 1u);
  EXPECT_EQ(planes[0]["action"], "answer");
  for (const char* side : {"left", "right"}) {
    EXPECT_LT(planes[0]["errors"][side]["normal_deg"].GetDouble(), 0.05) << side;
    EXPECT_LT(std::fabs(planes[0]["errors"][side]["offset_mm"].GetDouble()), 0.3) << side;
  }
  // The log names each view before it is shown.
  const std::string log = testsupport::ReadFile(dir_ / "log.jsonl");
  EXPECT_NE(log.find("\"text\":\"chessboard view 16 of 16: " + (dir_ / "pictures").string() +
                     "/chessboard/16.png\""),
            std::string::npos);
}

TEST_F(KivrunChessboardTest, AViewWithoutABoardIsNamedWithItsFileAndTheRestMeasureTheCamera) {
  KeepViews(12);
  Blank("03.png");
  Scenario(false);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0) << Joined(run.err);
  const std::string said = Joined(run.err);
  EXPECT_NE(said.find("kivrun: the camera was measured without a view: ieparam failed with 14: "
                      "view 03 (" +
                      (dir_ / "pictures").string() + "/chessboard/03.png): board not found"),
            std::string::npos)
      << said;
  // The round replays: the recorded answers stand in for the camera
  // parameter node.
  const ProgramRun replay = Kivrun("--replay log.jsonl --log again.jsonl");
  EXPECT_EQ(replay.status, 0) << Joined(replay.err);
  ASSERT_FALSE(replay.err.empty());
  EXPECT_EQ(replay.err.back().rfind("kivrun: the replay of log.jsonl gave the same ", 0), 0u)
      << Joined(replay.err);
}

TEST_F(KivrunChessboardTest, ViewsThatGiveNoCameraStopTheRoundNamingEachView) {
  KeepViews(6);
  Blank("06.png");
  Scenario(false);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl --report report s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 7) << Joined(run.err);
  const std::string views = (dir_ / "pictures/chessboard").string();
  const std::string said = Joined(run.err);
  EXPECT_NE(said.find("kivrun: s.json: step 0: the chessboard views in " + views +
                      " gave no camera; ieparam failed with 15: too few views: 5 show the board, "
                      "the calibration needs at least 6; view 06 (" +
                      views + "/06.png): no board found in it, the view was left out"),
            std::string::npos)
      << said;
  // The round's other output is all there: the log to its end, the report.
  const std::string log = testsupport::ReadFile(dir_ / "log.jsonl");
  EXPECT_NE(log.find("\"event\":\"end\",\"exit\":7"), std::string::npos);
  EXPECT_TRUE(fs::exists(dir_ / "report/report.md"));
}

TEST_F(KivrunChessboardTest, AFolderWithNeitherACameraNorViewsSaysWhatToDo) {
  fs::remove_all(dir_ / "pictures/chessboard");
  Scenario(false);
  ProgramRun run = Kivrun("--pictures pictures s.json");
  EXPECT_EQ(run.status, 7);
  const std::string pictures = (dir_ / "pictures").string();
  ASSERT_EQ(run.err.size(), 1u) << Joined(run.err);
  EXPECT_EQ(run.err[0], "kivrun: " + pictures +
                            " holds no camera model (camera.yaml) and no chessboard views "
                            "(chessboard/), and s.json names no camera: the planes are worked "
                            "out through the camera the pictures were taken with. Put its model "
                            "in " +
                            pictures +
                            "/camera.yaml, or chessboard views with their board.json in " +
                            pictures + "/chessboard/ (README, \"Try it on your own pictures\")");
  // A scenario that names a camera plays through it, saying whose it is.
  Scenario(false, LASERCALI_SOURCE_DIR "/scenarios/cameras/ideal.yaml");
  run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0);
  ASSERT_FALSE(run.err.empty());
  EXPECT_EQ(run.err[0].rfind("kivrun: note: " + pictures +
                                 " holds no camera model (camera.yaml) and no chessboard views "
                                 "(chessboard/): the planes are worked out through the "
                                 "scenario's camera, " LASERCALI_SOURCE_DIR
                                 "/scenarios/cameras/ideal.yaml",
                             0),
            0u)
      << run.err[0];
}

TEST_F(KivrunChessboardTest, TheFoldersOwnCameraComesFirst) {
  fs::copy_file(LASERCALI_SOURCE_DIR "/scenarios/cameras/ideal.yaml",
                dir_ / "pictures/camera.yaml");
  Scenario(false);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 0);
  const std::string pictures = (dir_ / "pictures").string();
  ASSERT_EQ(run.err.size(), 1u) << Joined(run.err);
  EXPECT_EQ(run.err[0], "kivrun: note: " + pictures +
                            "/camera.yaml is the round's camera; the chessboard views in " +
                            pictures + "/chessboard are not played");
  EXPECT_TRUE(Answers("ieparam").empty());
}

// Each problem of the folder (board.json missing or not JSON, no views, a
// view that is no picture) is named by the folder's reading, in process
// (chessboard_folder_test); here, one of them, that kivrun says it as its
// one line and stops with code 7 before the round.
TEST_F(KivrunChessboardTest, ABrokenChessboardFolderStopsBeforeTheRound) {
  Scenario(false);
  const std::string views = (dir_ / "pictures/chessboard").string();
  fs::remove(views + "/board.json");
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  EXPECT_EQ(run.status, 7);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0].rfind("kivrun: " + views + "/board.json: is missing", 0), 0u) << run.err[0];
  EXPECT_FALSE(fs::exists(dir_ / "log.jsonl")) << "no round was played";
}

}  // namespace
