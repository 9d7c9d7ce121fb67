// liblasercalc.so in a bare kiv::Host, without kivrun: the plug-in is
// loaded, its nodes are built from their configurations, and requests on
// their topics get their answers. The pictures come from the camera
// simulator, written to folders as the calibration node writes them; the
// camera model is the one the simulator draws with, given to the nodes as
// their configuration says.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <set>
#include <string>
#include <vector>

#include "framework/kiv.h"
#include "msgs/calcmsgs.h"
#include "msgs/calimsgs.h"
#include "msgs/topics.h"
#include "platform/kiv/host.h"
#include "platform/kiv/plugin.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/support/elf_dynamic.h"
#include "tests/support/temp_folder.h"
#include "tools/calc/camera_model_file.h"

namespace {

namespace sim = sunxi_cam::sim;

class CalcPluginTest : public ::testing::Test {
 protected:
  CalcPluginTest() {
    sim::Reset();
    library_ = kiv::NodeLibrary::Load(LASERCALC_PLUGIN_PATH, registry_);
    left_ = folder_.Folder("left");
    right_ = folder_.Folder("right");
    pic_ = folder_.Folder("pic");
    host_.Subscribe<LaserClibrMsg>("tool", calitopics::kLaserCalibrReqRes,
                                   [this](LaserClibrMsg* m) { planes_.push_back(*m); });
    host_.Subscribe<kiv_camera_calires_msg>(
        "tool", calitopics::kCameraCaliCheckRes,
        [this](kiv_camera_calires_msg* m) { checks_.push_back(*m); });
    host_.Subscribe<kiv_camera_distance_msg>(
        "tool", calitopics::kAppDistanceRes,
        [this](kiv_camera_distance_msg* m) { distances_.push_back(*m); });
    host_.Subscribe<CameraClibrIEParamMsg>(
        "tool", calitopics::kCameraCaliIEParamRes,
        [this](CameraClibrIEParamMsg* m) { ieparams_.push_back(*m); });
    host_.Subscribe<CalcReportMsg>("tool", calctopics::kCalcReport, [this](CalcReportMsg* m) {
      reports_.emplace_back();
      reports_.back().CopyFrom(m->report, reports_.back().GetAllocator());
    });
  }
  ~CalcPluginTest() override {
    nodes_.clear();
    sim::Reset();
  }

  // Builds node `id` from a configuration: JSON text, or the camera and
  // the wall of the simulator's scene with `more` members.
  kiv::KivNode& Build(const std::string& id, const std::string& json) {
    rapidjson::Document config;
    config.Parse(json.c_str());
    EXPECT_FALSE(config.HasParseError()) << json;
    nodes_.push_back(kiv::BuildNode(registry_, id, config));
    return *nodes_.back();
  }
  static std::string WithScene(const std::string& more) {
    const sim::SceneTruth truth = sim::Truth();
    char camera[300];
    std::snprintf(camera, sizeof camera,
                  R"("camera": {"fx": %.17g, "fy": %.17g, "cx": %.17g, "cy": %.17g,
                  "height_cm": %.17g, "pitch_deg": %.17g})",
                  truth.camera.fx, truth.camera.fy, truth.camera.cx, truth.camera.cy,
                  truth.camera.height, truth.camera.pitch);
    return "{" + std::string(camera) + (more.empty() ? "" : ", " + more) + "}";
  }
  std::string PlaneConfig(const std::string& name) const {
    return WithScene(R"("name": ")" + name + R"(", "wall_height_cm": 200, "left_folder": ")" +
                     left_ + R"(", "right_folder": ")" + right_ + R"(", "delt": 60)");
  }
  // The picture the camera shows of `laser` (1 left, 8 right) at `distance`.
  static void Store(const std::string& path, double distance, uint64_t laser) {
    sim::SetDistance(distance);
    const cv::Mat picture(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser)));
    ASSERT_TRUE(cv::imwrite(path, picture)) << path;
  }
  void StoreFactoryRound() {
    for (int d = 5; d <= 45; d += 5) {
      Store(left_ + "/" + std::to_string(d * 100 + 60) + ".bmp", d, 1);
      Store(right_ + "/" + std::to_string(d * 100 + 60) + ".bmp", d, 8);
    }
  }
  template <typename T>
  void Publish(const char* topic, T record) {
    kiv::Publisher<T>(host_.FindTopic(topic), topic).publishWithLine(&record, "test");
  }

  kiv::Host host_;
  std::unique_ptr<kiv::NodeLibrary> library_;
  kiv::NodeRegistry registry_;  // its builders live in the library: gone before it
  std::vector<std::unique_ptr<kiv::KivNode>> nodes_;
  testsupport::TempFolder folder_;
  std::string left_, right_, pic_;
  std::vector<LaserClibrMsg> planes_;
  std::vector<kiv_camera_calires_msg> checks_;
  std::vector<kiv_camera_distance_msg> distances_;
  std::vector<CameraClibrIEParamMsg> ieparams_;
  std::vector<rapidjson::Document> reports_;
};

// Thousandths of a degree plus 32768, as a degree.
double Degrees(uint16_t value) { return (value - 32768) / 1000.0; }

TEST_F(CalcPluginTest, RegistersItsFourNodes) {
  std::vector<std::string> ids;
  for (const auto& entry : registry_) ids.push_back(entry.first);
  EXPECT_EQ(ids, (std::vector<std::string>{"KivNodeLaserCalcCameraParam", "KivNodeLaserCalcCheck",
                                           "KivNodeLaserCalcDistance", "KivNodeLaserCalcPlane"}));
}

TEST_F(CalcPluginTest, ASecondRegistrationIsRefusedAndLeavesTheRegistryAsItWas) {
  try {
    kiv::NodeLibrary::Load(LASERCALC_PLUGIN_PATH, registry_);
    FAIL() << "registered twice";
  } catch (const kiv::LoadError& e) {
    EXPECT_NE(std::string(e.what()).find("ID 'KivNodeLaserCalcPlane' already registered"),
              std::string::npos)
        << e.what();
  }
  EXPECT_EQ(registry_.size(), 4u);
  // A registry that holds other IDs keeps them.
  kiv::NodeRegistry other;
  other.emplace("KivNodeLaserCali", nullptr);
  auto again = kiv::NodeLibrary::Load(LASERCALC_PLUGIN_PATH, other);
  EXPECT_EQ(other.size(), 5u);
  ASSERT_EQ(other.count("KivNodeLaserCali"), 1u);
  EXPECT_FALSE(other.at("KivNodeLaserCali")) << "the builder that was there was replaced";
  other.clear();
}

TEST_F(CalcPluginTest, TwoNodesOfTheSameKindAreRefused) {
  Build("KivNodeLaserCalcPlane", PlaneConfig("first"));
  try {
    Build("KivNodeLaserCalcPlane", PlaneConfig("second"));
    FAIL() << "a second plane node was built";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(),
                 "KivNodeLaserCalcPlane: a plane node already runs in this process (\"first\"); "
                 "two would both answer every request");
  }
  // Nodes of the other kinds are welcome, and a plane node again once the
  // first is gone.
  Build("KivNodeLaserCalcCheck",
        WithScene(R"("wall_height_cm": 200, "left_folder": ")" + left_ + R"(", "right_folder": ")" +
                  right_ + R"(", "delt": 60)"));
  nodes_.erase(nodes_.begin());
  EXPECT_EQ(Build("KivNodeLaserCalcPlane", PlaneConfig("second")).NodeName(), "second");
}

TEST_F(CalcPluginTest, AConfigurationNamingMissingFoldersIsRefusedWhenTheNodeIsBuilt) {
  try {
    Build("KivNodeLaserCalcPlane",
          WithScene(R"("wall_height_cm": 200, "left_folder": ")" + folder_.File("lft") +
                    R"(", "right_folder": ")" + right_ + R"(", "delt": 60)"));
    FAIL() << "built with a missing folder";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "KivNodeLaserCalcPlane: \"left_folder\": " +
                                         folder_.File("lft") + " is not a folder");
  }
  EXPECT_TRUE(nodes_.empty());
  // The refused node holds no kind: the next one builds.
  Build("KivNodeLaserCalcPlane", PlaneConfig("plane"));
}

TEST_F(CalcPluginTest, AnswersAPlaneRequestForAFolderOfPictures) {
  sim::Scene scene = sim::GetScene();
  scene.left.yaw = -3.5;
  scene.right.roll = 1.25;
  sim::SetScene(scene);
  StoreFactoryRound();
  Build("KivNodeLaserCalcPlane", PlaneConfig("plane"));
  Publish(calitopics::kLaserCalibrReq, LaserClibrMsg{3});
  EXPECT_TRUE(planes_.empty()) << "answered from inside the request's publication";
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  const LaserClibrMsg& answer = planes_[0];
  EXPECT_EQ(answer.kind, 2);
  ASSERT_EQ(answer.result, 1);
  EXPECT_NEAR(Degrees(answer.plane_data[0]), -3.5, 0.0015);
  EXPECT_NEAR(Degrees(answer.plane_data[4]), 1.25, 0.0015);
  EXPECT_NEAR((answer.plane_data[2] - 32768) / 100.0, sim::Truth().left.offset * 10, 0.01);
  EXPECT_GT(answer.plane_data[8], 7000);  // points used

  // The report came first, with what the answer cannot carry.
  ASSERT_EQ(reports_.size(), 1u);
  const rapidjson::Document& report = reports_[0];
  EXPECT_STREQ(report["node"].GetString(), "plane");
  EXPECT_STREQ(report["action"].GetString(), "answer");
  EXPECT_NEAR(report["lasers"]["left"]["yaw_deg"].GetDouble(), -3.5, 0.0015);
  EXPECT_NEAR(report["lasers"]["right"]["normal"][1].GetDouble(), sim::Truth().right.ny, 1e-4);
  EXPECT_GT(report["lasers"]["left"]["points"].GetInt(), 3500);
  EXPECT_FALSE(report.HasMember("code"));
}

// "camera_file" is read at each request: a file that is missing, cut short,
// for another picture size or with a number that is not finite fails the
// request with code 18, naming the file; the model written later is used.
TEST_F(CalcPluginTest, ACameraFileIsReadAtEachRequestAndABadOneFailsWithCode18) {
  StoreFactoryRound();
  const std::string file = pic_ + "/camera.yaml";
  Build("KivNodeLaserCalcPlane", R"({"name": "plane", "camera_file": ")" + file +
                                     R"(", "wall_height_cm": 200,
            "left_folder": ")" + left_ +
                                     R"(", "right_folder": ")" + right_ + R"(", "delt": 60})");
  const sim::SceneTruth truth = sim::Truth();
  calc::CameraModel model =
      calc::ModelOf({truth.camera.fx, truth.camera.fy, truth.camera.cx, truth.camera.cy,
                     truth.camera.height, truth.camera.pitch});
  const std::string good = calc::FormatCameraModel(model);
  std::string nan = good;
  nan.replace(nan.find("height_cm: 5."), 13, "height_cm: .nan");
  std::string small = good;
  small.replace(small.find("image_width: 640"), 16, "image_width: 320");
  const struct {
    const char* what;
    std::string text;  // empty: no file
    const char* reason;
  } cases[] = {{"missing", "", "missing"},
               {"cut short", good.substr(0, good.size() / 2), "line"},
               {"of another picture size", small, "320"},
               {"not finite", nan, "finite"}};
  for (const auto& c : cases) {
    std::remove(file.c_str());
    if (!c.text.empty()) std::ofstream(file) << c.text;
    Publish(calitopics::kLaserCalibrReq, LaserClibrMsg{1});
    host_.Loop().Advance(10000);
    ASSERT_FALSE(planes_.empty());
    EXPECT_EQ(planes_.back().result, 18) << c.what;
    const std::string reason = reports_.back()["reason"].GetString();
    EXPECT_EQ(reason.rfind("no camera model: camera model " + file, 0), 0u) << reason;
    EXPECT_NE(reason.find(c.reason), std::string::npos) << c.what << ": " << reason;
  }
  std::ofstream(file) << good;
  Publish(calitopics::kLaserCalibrReq, LaserClibrMsg{1});
  host_.Loop().Advance(10000);
  EXPECT_EQ(planes_.back().result, 1);
}

TEST_F(CalcPluginTest, RefusesAMissingPictureWithTheConfiguredCode) {
  StoreFactoryRound();
  std::remove((right_ + "/2060.bmp").c_str());
  Build("KivNodeLaserCalcPlane",
        WithScene(R"("wall_height_cm": 200, "refuse": 42, "delay_ms": 30, "left_folder": ")" +
                  left_ + R"(", "right_folder": ")" + right_ + R"(", "delt": 60)"));
  Publish(calitopics::kLaserCalibrReq, LaserClibrMsg{1});
  host_.Loop().Advance(20000);
  EXPECT_TRUE(planes_.empty()) << "answered before its delay";
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  EXPECT_EQ(planes_[0].result, 42);
  EXPECT_EQ(planes_[0].plane_data[0], 0);
  EXPECT_STREQ(reports_[0]["action"].GetString(), "refuse");
  EXPECT_EQ(std::string(reports_[0]["problems"][0].GetString()), right_ + "/2060.bmp: missing");
}

TEST_F(CalcPluginTest, TheCheckAndDistanceNodesMeasureWithThePlanesThePlaneNodeSent) {
  StoreFactoryRound();
  Store(pic_ + "/dis_left.bmp", 27.5, 1);
  Store(pic_ + "/dis_right.bmp", 27.5, 8);
  Build("KivNodeLaserCalcPlane", PlaneConfig("plane"));
  Build("KivNodeLaserCalcCheck",
        WithScene(R"("wall_height_cm": 200, "left_folder": ")" + left_ + R"(", "right_folder": ")" +
                  right_ + R"(", "delt": 60)"));
  Build("KivNodeLaserCalcDistance", WithScene(R"("pic_folder": ")" + pic_ + "\""));

  // Before any plane was sent, neither has planes to measure with.
  Publish(calitopics::kCameraCaliCheck, kiv_camera_calicheck_msg{1});
  Publish(calitopics::kDistanceStartCaculate, kiv_camera_distance_msg{1});
  host_.Loop().Advance(10000);
  ASSERT_EQ(checks_.size(), 1u);
  EXPECT_EQ(checks_[0].check_result, 11);
  ASSERT_EQ(distances_.size(), 1u);
  EXPECT_EQ(distances_[0].status, 11);

  Publish(calitopics::kLaserCalibrReq, LaserClibrMsg{1});
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  ASSERT_EQ(planes_[0].result, 1);
  Publish(calitopics::kCameraCaliCheck, kiv_camera_calicheck_msg{1});
  Publish(calitopics::kDistanceStartCaculate, kiv_camera_distance_msg{1});
  host_.Loop().Advance(10000);
  ASSERT_EQ(checks_.size(), 2u);
  EXPECT_EQ(checks_[1].kind, 4);
  EXPECT_EQ(checks_[1].check_result, 1);
  EXPECT_LT(checks_[1].check_data[0], 100);  // thousandths of a pixel RMS
  ASSERT_EQ(distances_.size(), 2u);
  EXPECT_EQ(distances_[1].status, 0);
  EXPECT_NEAR(distances_[1].distance, 2750, 3);  // tenths of a millimetre
  EXPECT_STREQ(reports_.back()["planes"].GetString(), "sent");
}

TEST_F(CalcPluginTest, TheCameraParameterNodeFindsTheChessboardAndKeepsTheView) {
  // A board of 10 x 7 squares of 40 pixels: 9 x 6 inner corners.
  cv::Mat board(480, 640, CV_8UC1, cv::Scalar(255));
  for (int row = 0; row < 7; ++row) {
    for (int column = 0; column < 10; ++column) {
      if ((row + column) % 2 == 0) {
        cv::rectangle(board, cv::Rect(120 + column * 40, 100 + row * 40, 40, 40), cv::Scalar(0),
                      cv::FILLED);
      }
    }
  }
  ASSERT_TRUE(cv::imwrite(pic_ + "/chessboard.bmp", board));
  Build("KivNodeLaserCalcCameraParam", R"({"pic_folder": ")" + pic_ + R"("})");
  Publish(calitopics::kCameraCaliIEParam, CameraClibrIEParamMsg{1});
  host_.Loop().Advance(10000);
  ASSERT_EQ(ieparams_.size(), 1u);
  EXPECT_EQ(ieparams_[0].ieparam1, 1);  // views kept
  EXPECT_EQ(ieparams_[0].ieparam2, 0);  // no calibration yet
  EXPECT_EQ(ieparams_[0].ieparam3, 0);  // kept, more views to come
  const rapidjson::Value& corners = reports_[0]["board"]["corners"];
  ASSERT_EQ(corners.Size(), 54u);
  // The inner corners lie where the squares meet, to a tenth of a pixel.
  double nearest = 1e9;
  for (const auto& c : corners.GetArray()) {
    nearest = std::min(nearest, std::hypot(c[0].GetDouble() - 159.5, c[1].GetDouble() - 139.5));
  }
  EXPECT_LT(nearest, 0.6);

  // A picture without a board: code 14.
  ASSERT_TRUE(cv::imwrite(pic_ + "/chessboard.bmp", cv::Mat(480, 640, CV_8UC1, cv::Scalar(90))));
  Publish(calitopics::kCameraCaliIEParam, CameraClibrIEParamMsg{1});
  host_.Loop().Advance(10000);
  ASSERT_EQ(ieparams_.size(), 2u);
  EXPECT_EQ(ieparams_[1].ieparam3, 14);
  EXPECT_EQ(ieparams_[1].ieparam1, 1);
  EXPECT_STREQ(reports_[1]["action"].GetString(), "fail");
  EXPECT_EQ(std::string(reports_[1]["reason"].GetString()).rfind("view 02: board not found", 0),
            0u);
}

// The plug-in links the framework library and OpenCV, never the camera
// library or its simulator: the truth cannot reach the calculations. The
// linker leaves out of DT_NEEDED a library on the link line the file takes
// nothing from, so the link line itself is read from the build tree's
// run path, which names the folder of every shared library on it.
TEST(CalcPluginLinkTest, TheLinkLineCannotReachTheSimulator) {
  const testsupport::ElfDynamic elf = testsupport::ReadElfDynamic(LASERCALC_PLUGIN_PATH);
  ASSERT_TRUE(elf.ok) << LASERCALC_PLUGIN_PATH;
  EXPECT_EQ(elf.exported, (std::set<std::string>{"Kiv_RegisterNodesFromNodeV3"}));
  bool framework = false;
  for (const std::string& library : elf.needed) {
    EXPECT_EQ(library.find("sunxi"), std::string::npos) << library;
    framework = framework || library.rfind("libkiv.so", 0) == 0;
  }
  EXPECT_TRUE(framework) << "the plug-in does not name the framework library";
  for (const std::string& symbol : elf.undefined) {
    EXPECT_EQ(symbol.find("sunxi_cam"), std::string::npos) << symbol;
  }
  EXPECT_NE(elf.runpath.find(KIV_LIBRARY_FOLDER), std::string::npos)
      << "the run path names no folder of the link line: " << elf.runpath;
  EXPECT_EQ(elf.runpath.find(SUNXI_CAM_LIBRARY_FOLDER), std::string::npos) << elf.runpath;
}

}  // namespace
