// The chessboard views of a picture folder: board.json checked member by
// member, the views matched against it and read as the camera reads them,
// and the placement of a simulated board as the fixture knows it.
#include "tools/kivrun/chessboard_folder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "tests/support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;
using kivrun::ChessboardFolderError;
using kivrun::ParseBoardJson;
using kivrun::ReadChessboardFolder;

const char kPlacement[] =
    R"({"origin_cm": [40, 10, 5], "x_axis": [0, -1, 0], "y_axis": [0, 0, -1]})";

// board.json with `board` and views "01.png" ... of the same placement.
std::string BoardText(const std::string& board, int views) {
  std::string text = "{\"board\": " + board + ", \"views\": [";
  for (int i = 1; i <= views; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "%02d.png", i);
    text += std::string(i > 1 ? ", " : "") + "{\"file\": \"" + name +
            "\", \"placement\": " + kPlacement + "}";
  }
  return text + "]}";
}

// What ParseBoardJson says of `text` ("" when it takes it).
std::string Refusal(const std::string& text) {
  try {
    ParseBoardJson(text, "b.json");
  } catch (const ChessboardFolderError& e) {
    return e.what();
  }
  return "";
}

TEST(BoardJsonTest, TakesTheBoardAsTheCameraParameterNodeDoesAndEachViewsPlacement) {
  const kivrun::BoardJson board = ParseBoardJson(
      BoardText(R"({"columns": 7, "rows": 5, "square_cm": 3, "margin_cm": 1})", 2), "b.json");
  EXPECT_EQ(board.board.columns, 7);
  EXPECT_EQ(board.board.rows, 5);
  EXPECT_EQ(board.board.square, 3);
  EXPECT_EQ(board.board.margin, 1);
  ASSERT_EQ(board.views.size(), 2u);
  EXPECT_EQ(board.views[1].file, "02.png");
  EXPECT_EQ(board.views[1].placement.origin[0], 40);
  EXPECT_EQ(board.views[1].placement.y_axis[2], -1);
  // Square and margin default to the node's 2.5 cm; sim-pictures' truth is
  // allowed beside them.
  const kivrun::BoardJson plain = ParseBoardJson(
      R"({"board": {"columns": 9, "rows": 6}, "camera": {"fx": 1}, "picture": {},
          "views": [{"file": "a.BMP", "rotation": [], "translation": [],
                     "placement": )" +
          std::string(kPlacement) + "}]}",
      "b.json");
  EXPECT_EQ(plain.board.square, 2.5);
  EXPECT_EQ(plain.board.margin, 2.5);
  EXPECT_EQ(plain.views[0].file, "a.BMP");
}

TEST(BoardJsonTest, EveryMistakeIsNamedWithTheFile) {
  EXPECT_EQ(Refusal("{"), "b.json: is not JSON: Missing a name for object member. (at byte 1)");
  EXPECT_EQ(Refusal("[]"), "b.json: must be a JSON object with \"board\" and \"views\"");
  EXPECT_EQ(Refusal(R"({"views": []})").rfind("b.json: needs \"board\": {\"columns\"", 0), 0u);
  EXPECT_EQ(Refusal(BoardText(R"({"columns": 9, "rows": 6, "cols": 9})", 1)),
            "b.json: board: unknown member \"cols\" (it may hold columns, rows, square_cm, "
            "margin_cm)");
  EXPECT_EQ(Refusal(BoardText(R"({"rows": 6})", 1)),
            "b.json: \"board\" needs \"columns\": the inner corners of the board");
  EXPECT_EQ(Refusal(BoardText(R"({"columns": 1, "rows": 6})", 1)),
            "b.json: board.columns must be a whole number from 2 to 100");
  EXPECT_EQ(Refusal(BoardText(R"({"columns": 9, "rows": 6, "square_cm": "2"})", 1)),
            "b.json: board.square_cm must be a number of cm from 0.01 to 100");
  EXPECT_EQ(Refusal(BoardText(R"({"columns": 9, "rows": 6, "margin_cm": -1})", 1)),
            "b.json: board.margin_cm must be a number of cm from 0 to 100");
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": []})")
                .rfind("b.json: needs \"views\": a list of", 0),
            0u);
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": [3]})"),
            "b.json: views[0]: must be an object with \"file\" and \"placement\"");
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": [{"placement": {}}]})"),
            "b.json: views[0]: needs \"file\": the view's file name in the folder (\"01.png\")");
  EXPECT_EQ(
      Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": [{"file": "../a.png"}]})"),
      "b.json: views[0]: \"file\" must be the name of a .png or .bmp file beside board.json, not "
      "\"../a.png\"");
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": [{"file": "a.jpg"}]})"),
            "b.json: views[0]: \"file\" must be the name of a .png or .bmp file beside "
            "board.json, not \"a.jpg\"");
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "views": [{"file": "a.png"}]})")
                .rfind("b.json: views[0]: needs \"placement\"", 0),
            0u);
  const std::string twice =
      R"({"board": {"columns": 9, "rows": 6}, "views": [{"file": "a.png", "placement": )" +
      std::string(kPlacement) + R"(}, {"file": "a.png", "placement": )" + kPlacement + "}]}";
  EXPECT_EQ(Refusal(twice), "b.json: views[1]: \"a.png\" is listed twice");
  const auto placement = [](const std::string& p) {
    return Refusal(
        R"({"board": {"columns": 9, "rows": 6}, "views": [{"file": "a.png", "placement": )" + p +
        "}]}");
  };
  EXPECT_EQ(placement(R"({"origin_cm": [1, 2], "x_axis": [0, -1, 0], "y_axis": [0, 0, -1]})"),
            "b.json: views[0]: placement: \"origin_cm\" must be a list of three numbers [x, y, z]");
  EXPECT_EQ(placement(R"({"origin_cm": [1, 2, 3], "x_axis": [0, -1, 0], "y_axis": [0, -1, 0]})"),
            "b.json: views[0]: placement: x_axis and y_axis must be at right angles, each of "
            "unit length");
  EXPECT_EQ(placement(R"({"origin_cm": [1, 2, 3], "x_axis": [0, -2, 0], "y_axis": [0, 0, -1]})"),
            "b.json: views[0]: placement: x_axis and y_axis must be at right angles, each of "
            "unit length");
  EXPECT_EQ(placement(R"({"origin": [1, 2, 3]})"),
            "b.json: views[0]: placement: unknown member \"origin\" (it may hold origin_cm, "
            "x_axis, y_axis)");
  EXPECT_EQ(Refusal(R"({"board": {"columns": 9, "rows": 6}, "view": []})"),
            "b.json: unknown member \"view\" (it may hold board, views, picture, camera, "
            "description)");
}

class ChessboardFolderTest : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = folder_.Folder("pictures"); }

  // `count` views of a board, each a picture the camera can show.
  void Views(int count, const std::string& board_json) {
    fs::create_directories(dir_ + "/chessboard");
    for (int i = 1; i <= count; ++i) {
      char name[16];
      std::snprintf(name, sizeof name, "%02d.png", i);
      cv::imwrite(dir_ + "/chessboard/" + name, cv::Mat(480, 640, CV_8UC1, cv::Scalar(128)));
    }
    if (!board_json.empty()) std::ofstream(dir_ + "/chessboard/board.json") << board_json;
  }
  std::string Refusal() {
    try {
      ReadChessboardFolder(dir_);
    } catch (const ChessboardFolderError& e) {
      return e.what();
    }
    return "";
  }

  testsupport::TempFolder folder_;
  std::string dir_;
};

TEST_F(ChessboardFolderTest, ViewsArePlayedInTheOrderOfTheirNamesEachWithItsPlacement) {
  Views(6, BoardText(R"({"columns": 9, "rows": 6})", 6));
  EXPECT_FALSE(kivrun::HasChessboardFolder(folder_.path()));
  ASSERT_TRUE(kivrun::HasChessboardFolder(dir_));
  const kivrun::ChessboardFolder read = ReadChessboardFolder(dir_);
  EXPECT_EQ(read.dir, dir_ + "/chessboard");
  ASSERT_EQ(read.views.size(), 6u);
  EXPECT_EQ(read.views[0], dir_ + "/chessboard/01.png");
  EXPECT_EQ(read.views[5], dir_ + "/chessboard/06.png");
  ASSERT_EQ(read.placements.size(), 6u);
  EXPECT_EQ(read.placements[3].origin[1], 10);
  EXPECT_EQ(read.board.columns, 9);
}

TEST_F(ChessboardFolderTest, WhatIsMissingOrWrongIsNamedWithItsFile) {
  fs::create_directories(dir_ + "/chessboard");
  const std::string folder = dir_ + "/chessboard";
  EXPECT_EQ(Refusal(), folder +
                           ": holds no chessboard views (.png or .bmp files); put at least 6 "
                           "there, or the camera's model in " +
                           dir_ + "/camera.yaml");
  Views(3, "");
  EXPECT_EQ(Refusal(),
            folder + ": holds 3 chessboard views; a camera calibration takes at least 6");
  Views(6, "");
  EXPECT_EQ(Refusal().rfind(folder + "/board.json: is missing: it gives the board", 0), 0u);
  Views(6, "{\"board\": ");
  EXPECT_EQ(Refusal().rfind(folder + "/board.json: is not JSON: ", 0), 0u) << Refusal();
  Views(6, BoardText(R"({"columns": 9, "rows": 6})", 5));
  EXPECT_EQ(Refusal(), folder +
                           "/06.png: board.json gives no placement for it (add {\"file\": "
                           "\"06.png\", \"placement\": {...}} to its \"views\")");
  Views(6, BoardText(R"({"columns": 9, "rows": 6})", 7));
  EXPECT_EQ(Refusal(), folder + "/board.json: lists \"07.png\", which is not in " + folder);
  // A view the camera cannot show: of the wrong size, or no picture.
  Views(6, BoardText(R"({"columns": 9, "rows": 6})", 6));
  cv::imwrite(folder + "/03.png", cv::Mat(240, 320, CV_8UC1, cv::Scalar(0)));
  EXPECT_EQ(Refusal(), "image file '" + folder +
                           "/03.png' is 320 x 240 with 1 channel(s) of 8 bits; the camera needs "
                           "640 x 480 with one 8-bit channel (grayscale)");
  std::ofstream(folder + "/03.png") << "not a picture";
  EXPECT_EQ(Refusal().rfind("image file '" + folder + "/03.png' ", 0), 0u) << Refusal();
}

TEST(PlacementTest, TheFixturesPlacementOfTheSimulatedBoardIsTheBoardsFrameOnTheRobot) {
  sim::Reset();
  rapidjson::Document settings;
  settings.Parse(R"({"scene": {"board": {"on": true, "x": 0, "y": 0, "z": 35}}})");
  sim::Configure(settings);
  const sim::SceneTruth truth = sim::Truth();
  const kivrun::Placement p = kivrun::PlacementOf(truth);
  // The ideal camera 5 cm up, pitched 10 degrees down, looks along the
  // robot's x: a board facing it 35 cm ahead has its rows along -y, its
  // columns mostly down, and its first corner ahead and to the left.
  EXPECT_NEAR(p.x_axis[1], -1, 1e-9);
  EXPECT_LT(p.y_axis[2], -0.9);
  EXPECT_GT(p.origin[0], 30);
  EXPECT_GT(p.origin[1], 0);
  EXPECT_NEAR(std::hypot(p.y_axis[0], p.y_axis[1], p.y_axis[2]), 1, 1e-12);
  EXPECT_EQ(kivrun::PlacementText({{1, 2, 3}, {0, -1, 0}, {0.5, 0, -0.25}}),
            "{\"origin_cm\": [1, 2, 3], \"x_axis\": [0, -1, 0], \"y_axis\": [0.5, 0, -0.25]}\n");
  sim::Reset();
}

}  // namespace
