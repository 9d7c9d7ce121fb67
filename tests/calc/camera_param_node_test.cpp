// The camera parameter node of liblasercalc.so in a bare kiv::Host: chessboard
// views drawn through a known camera (synthetic_boards.h), one per request,
// each written where the node reads it and overwritten by the next, with the
// fixture's file saying where the board stands on the robot.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "framework/kiv.h"
#include "msgs/calcmsgs.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/kiv/host.h"
#include "platform/kiv/plugin.h"
#include "tests/calc/synthetic_boards.h"
#include "tests/support/temp_folder.h"
#include "tools/calc/camera_model_file.h"

namespace {

using calc::BoardGeometry;
using calc::BoardPlacement;
using calc::CameraModel;

class CameraParamNodeTest : public ::testing::Test {
 protected:
  CameraParamNodeTest() {
    library_ = kiv::NodeLibrary::Load(LASERCALC_PLUGIN_PATH, registry_);
    pic_ = folder_.Folder("pic");
    host_.Subscribe<CameraClibrIEParamMsg>(
        "tool", calitopics::kCameraCaliIEParamRes,
        [this](CameraClibrIEParamMsg* m) { answers_.push_back(*m); });
    host_.Subscribe<CalcReportMsg>("tool", calctopics::kCalcReport, [this](CalcReportMsg* m) {
      reports_.emplace_back();
      reports_.back().CopyFrom(m->report, reports_.back().GetAllocator());
    });
  }
  ~CameraParamNodeTest() override { node_.reset(); }

  void Build(int views) {
    const std::string json =
        R"({"pic_folder": ")" + pic_ +
        R"(", "board": {"columns": 9, "rows": 6, "square_cm": 2, "margin_cm": 1},)" +
        R"( "views": )" + std::to_string(views) + R"(, "camera_out": ")" + Model() +
        R"(", "placement_file": ")" + Placement() + R"("})";
    rapidjson::Document config;
    config.Parse(json.c_str());
    ASSERT_FALSE(config.HasParseError()) << json;
    node_ = kiv::BuildNode(registry_, "KivNodeLaserCalcCameraParam", config);
  }
  std::string Model() const { return pic_ + "/camera.yaml"; }
  std::string Placement() const { return pic_ + "/placement.json"; }

  // Shows the node one view and lets it answer.
  void Ask(const cv::Mat& view, const BoardPlacement& p) {
    ASSERT_TRUE(cv::imwrite(pic_ + "/chessboard.bmp", view));
    std::ofstream out(Placement());
    char text[400];
    std::snprintf(text, sizeof text,
                  R"({"origin_cm": [%.17g, %.17g, %.17g], "x_axis": [%.17g, %.17g, %.17g], )"
                  R"("y_axis": [%.17g, %.17g, %.17g]})",
                  p.origin.x, p.origin.y, p.origin.z, p.x_axis.x, p.x_axis.y, p.x_axis.z,
                  p.y_axis.x, p.y_axis.y, p.y_axis.z);
    out << text;
    out.close();
    CameraClibrIEParamMsg request{1};
    kiv::Publisher<CameraClibrIEParamMsg>(host_.FindTopic(calitopics::kCameraCaliIEParam),
                                          calitopics::kCameraCaliIEParam)
        .publishWithLine(&request, "test");
    host_.Loop().Advance(10000);
  }
  void AskAll(const std::vector<calctest::BoardSpot>& spots) {
    for (const calctest::BoardSpot& spot : spots) {
      const BoardPlacement p = calctest::PlaceBoard(camera_, board_, spot);
      Ask(calctest::RenderBoard(camera_, board_, p, {}), p);
    }
  }

  kiv::Host host_;
  std::unique_ptr<kiv::NodeLibrary> library_;
  kiv::NodeRegistry registry_;
  std::unique_ptr<kiv::KivNode> node_;
  testsupport::TempFolder folder_;
  std::string pic_;
  std::vector<CameraClibrIEParamMsg> answers_;
  std::vector<rapidjson::Document> reports_;
  const CameraModel camera_ = calctest::RobotCamera();
  const BoardGeometry board_{9, 6, 2.0, 1.0};
};

TEST_F(CameraParamNodeTest, KeepsEachViewAndCalibratesOnceTheSetIsComplete) {
  const std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  Build(static_cast<int>(spots.size()));
  AskAll(spots);
  ASSERT_EQ(answers_.size(), spots.size());
  for (std::size_t i = 0; i + 1 < spots.size(); ++i) {
    EXPECT_EQ(answers_[i].ieparam3, 0) << "view " << i + 1 << " kept, more to come";
    EXPECT_EQ(answers_[i].ieparam1, i + 1);
    EXPECT_EQ(answers_[i].ieparam2, 0);
  }
  const CameraClibrIEParamMsg& last = answers_.back();
  EXPECT_EQ(last.ieparam3, 1);
  EXPECT_EQ(last.ieparam1, spots.size());
  EXPECT_GT(last.ieparam2, 0);
  EXPECT_LE(last.ieparam2, 15);  // hundredths of a pixel RMS
  EXPECT_STREQ(reports_.back()["action"].GetString(), "answer");

  // The model file holds the camera the views were drawn through.
  CameraModel model;
  std::string error;
  ASSERT_TRUE(calc::ReadCameraModelFile(Model(), &model, &error)) << error;
  EXPECT_NEAR(model.intrinsics.fx / camera_.intrinsics.fx, 1, 0.003);
  EXPECT_NEAR(model.intrinsics.fy / camera_.intrinsics.fy, 1, 0.003);
  EXPECT_NEAR(model.intrinsics.cx, camera_.intrinsics.cx, 1.0);
  EXPECT_NEAR(model.intrinsics.cy, camera_.intrinsics.cy, 1.0);
  ASSERT_TRUE(model.pose_known);
  EXPECT_NEAR(model.pose.height, camera_.pose.height, 0.05);
  EXPECT_NEAR(model.pose.pitch, camera_.pose.pitch, 0.1);
  EXPECT_NEAR(model.pose.yaw, camera_.pose.yaw, 0.1);
  EXPECT_TRUE(model.lens_sigma_known);
  EXPECT_EQ(reports_.back()["camera"]["file"].GetString(), Model());
}

TEST_F(CameraParamNodeTest, BoardsOnlyInTheMiddleLeaveTheDistortionUnknown) {
  const std::vector<calctest::BoardSpot> spots = calctest::CentralSpots();
  Build(static_cast<int>(spots.size()));
  AskAll(spots);
  ASSERT_EQ(answers_.size(), spots.size());
  EXPECT_EQ(answers_.back().ieparam3, 16);
  EXPECT_NE(std::string(reports_.back()["reason"].GetString()).find("views do not cover"),
            std::string::npos);
  std::ifstream model(Model());
  EXPECT_FALSE(model.good()) << "no camera model is written";
}

TEST_F(CameraParamNodeTest, AViewWithoutABoardIsNamedAndTooFewViewsAreRefused) {
  Build(6);
  const std::vector<calctest::BoardSpot> spots = calctest::CoveringSpots();
  const BoardPlacement p = calctest::PlaceBoard(camera_, board_, spots[0]);
  Ask(calctest::RenderBoard(camera_, board_, p, {}), p);
  Ask(cv::Mat(480, 640, CV_8UC1, cv::Scalar(90)), p);
  EXPECT_EQ(answers_[1].ieparam3, 14);
  EXPECT_EQ(answers_[1].ieparam1, 1) << "one view kept so far";
  EXPECT_STREQ(reports_[1]["action"].GetString(), "fail");
  EXPECT_EQ(std::string(reports_[1]["reason"].GetString()).rfind("view 02: board not found", 0), 0u)
      << reports_[1]["reason"].GetString();
  // A board the picture's edge cuts off is not found either: its inner
  // corners are all in the picture, its outer squares are not. (A board
  // cut off further, its inner corners too, is a picture without a board
  // like the grey one; the search takes seconds to give it up.)
  calctest::BoardSpot cut = spots[0];
  cut.u = 555;
  const BoardPlacement q = calctest::PlaceBoard(camera_, board_, cut);
  Ask(calctest::RenderBoard(camera_, board_, q, {}), q);
  EXPECT_EQ(answers_[2].ieparam3, 14);
  EXPECT_EQ(answers_[2].ieparam1, 1) << "still one view kept";
  EXPECT_EQ(std::string(reports_[2]["reason"].GetString()),
            "view 03: board not found (it is cut off by the picture's edge)");
  for (int i = 0; i < 3; ++i) Ask(cv::Mat(480, 640, CV_8UC1, cv::Scalar(90)), p);
  ASSERT_EQ(answers_.size(), 6u);
  EXPECT_EQ(answers_[5].ieparam3, 15);
  EXPECT_NE(std::string(reports_[5]["reason"].GetString()).find("too few views"),
            std::string::npos);
  // The next request starts a new set.
  Ask(calctest::RenderBoard(camera_, board_, p, {}), p);
  EXPECT_EQ(answers_[6].ieparam3, 0);
  EXPECT_EQ(answers_[6].ieparam1, 1);
}

TEST_F(CameraParamNodeTest, AMissingPlacementFileIsNamed) {
  Build(6);
  const BoardPlacement p = calctest::PlaceBoard(camera_, board_, calctest::CoveringSpots()[0]);
  ASSERT_TRUE(cv::imwrite(pic_ + "/chessboard.bmp", calctest::RenderBoard(camera_, board_, p, {})));
  std::remove(Placement().c_str());
  CameraClibrIEParamMsg request{1};
  kiv::Publisher<CameraClibrIEParamMsg>(host_.FindTopic(calitopics::kCameraCaliIEParam),
                                        calitopics::kCameraCaliIEParam)
      .publishWithLine(&request, "test");
  host_.Loop().Advance(10000);
  ASSERT_EQ(answers_.size(), 1u);
  EXPECT_EQ(answers_[0].ieparam3, 2);
  EXPECT_NE(std::string(reports_[0]["reason"].GetString()).find("placement file"),
            std::string::npos);
}

}  // namespace
