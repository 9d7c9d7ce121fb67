// The computing calculation nodes of a round: nodes of liblasercalc.so that
// kivrun builds for "compute" settings, given the scenario's camera model file
// and the wall from the simulator's scene, and whose answers kivrun logs with the truth
// and the errors beside what they computed.
#include "tools/kivrun/calc_plugin_nodes.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "msgs/calimsgs.h"
#include "platform/kiv/host.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/support/temp_folder.h"
#include "tools/kivrun/answer_watch.h"
#include "tools/kivrun/node_watch.h"
#include "tools/kivrun/responders.h"
#include "tools/kivrun/round_context.h"

namespace {

namespace sim = sunxi_cam::sim;
using kivrun::ResponderSetting;

// The simulator's ideal camera as a camera model file, as a scenario names it.
const char kIdealCamera[] = LASERCALI_SOURCE_DIR "/scenarios/cameras/ideal.yaml";

class ComputingRespondersTest : public ::testing::Test {
 protected:
  ComputingRespondersTest()
      : round_(Plugins(), log_text_, errors_),
        node_watch_(round_),
        answer_watch_(round_),
        calc_nodes_(round_, node_watch_),
        responders_(host_, round_.log, 60) {
    sim::Reset();
    round_.log.SetClock([this] { return host_.Loop().Now(); });
    host_.SetObserver(&node_watch_);
    answer_watch_.Start();
    responders_.SetComputingNodes(&calc_nodes_);
    calc_nodes_.SetCameraModel(kIdealCamera);
    host_.Subscribe<LaserClibrMsg>("tool", "LASER_CALIBR_REQRES",
                                   [this](LaserClibrMsg* m) { planes_.push_back(*m); });
    host_.Subscribe<kiv_camera_calires_msg>(
        "tool", "CAMERACALICHECKRES", [this](kiv_camera_calires_msg* m) { checks_.push_back(*m); });
    host_.Subscribe<kiv_camera_distance_msg>(
        "tool", "APPDISTANCERES", [this](kiv_camera_distance_msg* m) { distances_.push_back(*m); });
    for (const char* side : {"left", "right", "pic"}) folder_.Folder(side);
  }
  ~ComputingRespondersTest() override {
    calc_nodes_.Clear();
    host_.SetObserver(nullptr);
    sim::Reset();
  }
  // kivrun's options: the calculation plug-in is the one built.
  static const kivrun::Options& Plugins() {
    static kivrun::Options options;
    options.built_plugins["liblasercalc.so"] = LASERCALC_PLUGIN_PATH;
    return options;
  }

  template <typename T>
  void Publish(const std::string& topic, T record) {
    kiv::Publisher<T> publisher(host_.FindTopic(topic), topic);
    publisher.publishWithLine(&record, "test");
  }
  void RequestPlane() {
    LaserClibrMsg request;
    request.kind = 1;
    Publish("LASER_CALIBR_REQ", request);
  }
  ResponderSetting Setting(const std::string& node) {
    ResponderSetting setting;
    setting.node = node;
    setting.answer = kivrun::JsonText::FromText("{}");
    setting.has_needs = true;
    return setting;
  }

  // Writes the current scene's picture of `laser` at `distance` as the node would.
  void Store(const std::string& path, double distance, uint64_t laser) {
    sim::SetDistance(distance);
    const cv::Mat picture(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(laser)));
    ASSERT_TRUE(cv::imwrite(path, picture)) << path;
  }
  std::string Factory(const char* side, int distance) const {
    return folder_.File(side) + "/" + std::to_string(distance * 100 + 60) + ".bmp";
  }
  // The 18 factory pictures of the current scene; their paths.
  std::vector<std::string> StoreFactoryRound() {
    std::vector<std::string> paths;
    for (const char* side : {"left", "right"}) {
      for (int d = 5; d <= 45; d += 5) {
        Store(Factory(side, d), d, side[0] == 'l' ? 1 : 8);
        paths.push_back(Factory(side, d));
      }
    }
    return paths;
  }
  ResponderSetting Computing(const std::string& node, const std::vector<std::string>& needs) {
    ResponderSetting setting = Setting(node);
    setting.mode = ResponderSetting::Mode::kCompute;
    setting.needs = needs;
    return setting;
  }
  // Plays one plane request; the answer.
  LaserClibrMsg PlaneAnswer(const std::vector<std::string>& needs) {
    responders_.Configure(Computing("plane", needs));
    planes_.clear();
    RequestPlane();
    host_.Loop().Advance(10000);
    EXPECT_EQ(planes_.size(), 1u);
    return planes_.empty() ? LaserClibrMsg{} : planes_.back();
  }
  kiv_camera_calires_msg CheckAnswer(const std::vector<std::string>& needs) {
    responders_.Configure(Computing("check", needs));
    checks_.clear();
    Publish("CAMERACALICHECK", kiv_camera_calicheck_msg{1});
    host_.Loop().Advance(10000);
    EXPECT_EQ(checks_.size(), 1u);
    return checks_.empty() ? kiv_camera_calires_msg{} : checks_.back();
  }
  kiv_camera_distance_msg DistanceAnswer() {
    responders_.Configure(Computing("distance", {DisLeft(), DisRight()}));
    distances_.clear();
    Publish("DISTANCESTARTCACULATE", kiv_camera_distance_msg{1});
    host_.Loop().Advance(10000);
    EXPECT_EQ(distances_.size(), 1u);
    return distances_.empty() ? kiv_camera_distance_msg{} : distances_.back();
  }
  std::string DisLeft() const { return folder_.File("pic") + "/dis_left.bmp"; }
  std::string DisRight() const { return folder_.File("pic") + "/dis_right.bmp"; }
  // The last "answer" event of the log.
  // A computing distance node that has learnt the planes a plane node sent.
  void SendPlanes() {
    responders_.Configure(Computing("distance", {DisLeft(), DisRight()}));
    ASSERT_EQ(PlaneAnswer(StoreFactoryRound()).result, 1);
  }
  rapidjson::Document LastAnswer() {
    std::istringstream lines(log_text_.str());
    std::string last;
    for (std::string line; std::getline(lines, line);) {
      if (line.find("\"event\":\"answer\"") != std::string::npos) last = line;
    }
    rapidjson::Document doc;
    doc.Parse(last.c_str());
    EXPECT_FALSE(doc.HasParseError()) << last;
    return doc;
  }
  void SetLasers(const sim::LaserModel& left, const sim::LaserModel& right) {
    sim::Scene scene = sim::GetScene();
    scene.left = left;
    scene.right = right;
    sim::SetScene(scene);
  }

  std::ostringstream log_text_, errors_;
  kivrun::RoundContext round_;
  kiv::Host& host_ = round_.host;
  kivrun::NodeWatch node_watch_;
  kivrun::AnswerWatch answer_watch_;
  kivrun::CalcPluginNodes calc_nodes_;
  kivrun::Responders responders_;
  testsupport::TempFolder folder_;
  std::vector<LaserClibrMsg> planes_;
  std::vector<kiv_camera_calires_msg> checks_;
  std::vector<kiv_camera_distance_msg> distances_;
};

// Yaw in thousandths of a degree, plus 32768.
double Degrees(uint16_t value) { return (value - 32768) / 1000.0; }

TEST_F(ComputingRespondersTest, ThePlaneNodeRecoversBothLasersPlanes) {
  SetLasers({0.5, 2.7, 2.4, -4.5, 2.0, true}, {-0.3, -1.6, 1.5, 3.5, -1.25, true});
  const LaserClibrMsg answer = PlaneAnswer(StoreFactoryRound());
  EXPECT_EQ(answer.kind, 2);
  ASSERT_EQ(answer.result, 1);
  // Within a thousandth and a half of a degree and a hundredth of a millimetre.
  const sim::LaserPlane left = sim::PlaneOf(sim::GetScene().left);
  const sim::LaserPlane right = sim::PlaneOf(sim::GetScene().right);
  EXPECT_NEAR(Degrees(answer.plane_data[0]), -4.5, 0.0015);
  EXPECT_NEAR(Degrees(answer.plane_data[1]), 2.0, 0.0015);
  EXPECT_NEAR((answer.plane_data[2] - 32768) / 100.0, left.offset * 10, 0.01);
  EXPECT_NEAR(Degrees(answer.plane_data[3]), 3.5, 0.0015);
  EXPECT_NEAR(Degrees(answer.plane_data[4]), -1.25, 0.0015);
  EXPECT_NEAR((answer.plane_data[5] - 32768) / 100.0, right.offset * 10, 0.01);
  EXPECT_GT(answer.plane_data[6], 0);  // micrometres of scatter
  EXPECT_LT(answer.plane_data[6], 50);
  EXPECT_GT(answer.plane_data[8], 7000);  // points used

  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["action"].GetString(), "answer");
  EXPECT_NEAR(event["lasers"]["left"]["yaw"].GetDouble(), -4.5, 0.0015);
  EXPECT_EQ(event["truth"]["left"]["yaw"].GetDouble(), -4.5);
  EXPECT_EQ(event["truth"]["right"]["roll"].GetDouble(), -1.25);
  EXPECT_LT(event["errors"]["left"]["normal_deg"].GetDouble(), 0.005);
  EXPECT_LT(std::fabs(event["errors"]["right"]["offset_mm"].GetDouble()), 0.02);
  EXPECT_FALSE(event.HasMember("code"));
}

TEST_F(ComputingRespondersTest, APictureWithoutItsLaserFailsWithCode3) {
  std::vector<std::string> paths = StoreFactoryRound();
  sim::Scene scene = sim::GetScene();
  scene.right.on = false;
  sim::SetScene(scene);
  Store(Factory("right", 25), 25, 8);
  const LaserClibrMsg answer = PlaneAnswer(paths);
  EXPECT_EQ(answer.result, 3);
  EXPECT_EQ(answer.plane_data[0], 0);
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["action"].GetString(), "fail");
  EXPECT_EQ(event["code"].GetInt(), 3);
  EXPECT_EQ(std::string(event["reason"].GetString()),
            "right laser: " + Factory("right", 25) +
                ": no stripe (0 rows with a stripe centre, 20 needed)");
  EXPECT_EQ(event["lasers"]["right"]["code"].GetInt(), 3);
  EXPECT_TRUE(event["lasers"]["left"].HasMember("yaw"));
}

TEST_F(ComputingRespondersTest, TooFewStripePointsFailWithCode4) {
  sim::Scene scene = sim::GetScene();
  scene.gap_from = 40;  // the stripe shows in 40 rows
  scene.gap_to = 479;
  sim::SetScene(scene);
  Store(Factory("left", 30), 30, 1);
  Store(Factory("right", 30), 30, 8);
  EXPECT_EQ(PlaneAnswer({Factory("left", 30), Factory("right", 30)}).result, 4);
}

TEST_F(ComputingRespondersTest, PointsOffTheTargetFailWithCode5) {
  const std::vector<std::string> paths = StoreFactoryRound();
  // The calculation is told of a wall 2 cm high; the pictures show one of 200.
  sim::Scene scene = sim::GetScene();
  scene.wall_height = 2;
  sim::SetScene(scene);
  EXPECT_EQ(PlaneAnswer(paths).result, 5);
  EXPECT_NE(std::string(LastAnswer()["reason"].GetString())
                .find("stripe centres lie on neither the floor nor the wall"),
            std::string::npos);
}

TEST_F(ComputingRespondersTest, AppPicturesCutBelowTheWallFailWithCode6) {
  // Cut pictures that kept the floor instead of the wall: one line on the floor.
  std::vector<std::string> paths;
  for (const char* side : {"left", "right"}) {
    for (int d : {10, 20, 30}) {
      sim::SetDistance(d);
      cv::Mat picture =
          cv::Mat(480, 640, CV_8UC1, const_cast<uint8_t*>(sim::Luminance(side[0] == 'l' ? 1 : 8)))
              .clone();
      picture.rowRange(0, 400).setTo(0);
      const std::string path = folder_.File(side) + "/" + std::to_string(d * 100 + 20) + ".bmp";
      ASSERT_TRUE(cv::imwrite(path, picture));
      paths.push_back(path);
    }
  }
  EXPECT_EQ(PlaneAnswer(paths).result, 6);
}

TEST_F(ComputingRespondersTest, PicturesUnderTheWrongNumbersFailWithCode7) {
  std::vector<std::string> paths = StoreFactoryRound();
  // The 10 and 15 cm pictures of the left laser filed under each other's number.
  Store(Factory("left", 10), 15, 1);
  Store(Factory("left", 15), 10, 1);
  EXPECT_EQ(PlaneAnswer(paths).result, 7);
  EXPECT_NE(std::string(LastAnswer()["reason"].GetString())
                .find("left laser: the points do not lie on one plane"),
            std::string::npos);
}

TEST_F(ComputingRespondersTest, SwappedLaserPicturesFailWithCode8) {
  std::vector<std::string> paths;
  for (const char* side : {"left", "right"}) {
    for (int d = 5; d <= 45; d += 5) {
      Store(Factory(side, d), d, side[0] == 'l' ? 8 : 1);  // each laser in the other's folder
      paths.push_back(Factory(side, d));
    }
  }
  EXPECT_EQ(PlaneAnswer(paths).result, 8);
  EXPECT_EQ(std::string(LastAnswer()["reason"].GetString()),
            "the left laser's plane lies right of the right laser's: the pictures of the two "
            "lasers are swapped");
}

TEST_F(ComputingRespondersTest, APlaneBeyondTheValuesRangeFailsWithCode9) {
  // A left laser turned 34 degrees to the right: a plane whose yaw the values cannot carry.
  SetLasers({0, 2.2, 2, -34, 0, true}, {0, -2.2, 2, 2, 0, true});
  std::vector<std::string> paths;
  for (const char* side : {"left", "right"}) {
    for (int d = 5; d <= 20; d += 5) {
      Store(Factory(side, d), d, side[0] == 'l' ? 1 : 8);
      paths.push_back(Factory(side, d));
    }
  }
  const LaserClibrMsg answer = PlaneAnswer(paths);
  EXPECT_EQ(answer.result, 9) << LastAnswer()["reason"].GetString();
  EXPECT_NEAR(LastAnswer()["lasers"]["left"]["yaw"].GetDouble(), -34, 0.01);
}

TEST_F(ComputingRespondersTest, TheCheckMeasuresTheStripesAgainstTheSentPlanes) {
  const std::vector<std::string> paths = StoreFactoryRound();
  // The check node learns the planes from the plane node's answer.
  responders_.Configure(Computing("check", paths));
  ASSERT_EQ(PlaneAnswer(paths).result, 1);
  const kiv_camera_calires_msg check = CheckAnswer(paths);
  EXPECT_EQ(check.kind, 4);
  EXPECT_EQ(check.check_result, 1);
  for (int i : {0, 2}) {
    EXPECT_GT(check.check_data[i], 5) << i;  // thousandths of a pixel RMS: the noise
    EXPECT_LT(check.check_data[i], 100) << i;
    EXPECT_GT(check.check_data[i + 1], check.check_data[i]) << i;  // the worst
    EXPECT_LT(check.check_data[i + 1], 500) << i;
  }
  const rapidjson::Document event = LastAnswer();
  EXPECT_GT(event["residuals"]["left"]["points"].GetInt(), 4000);
  EXPECT_TRUE(event["planes"]["right"].HasMember("offset_mm"));
}

TEST_F(ComputingRespondersTest, PicturesThatTheSentPlanesDoNotExplainFailTheCheckWithCode10) {
  const std::vector<std::string> paths = StoreFactoryRound();
  responders_.Configure(Computing("check", paths));
  ASSERT_EQ(PlaneAnswer(paths).result, 1);
  // The right laser leans half a degree more than when it was calibrated.
  SetLasers(sim::GetScene().left, {0, -2.2, 2, 2, 0.5, true});
  StoreFactoryRound();
  const kiv_camera_calires_msg check = CheckAnswer(paths);
  EXPECT_EQ(check.check_result, 10);
  EXPECT_LT(check.check_data[0], 100);
  EXPECT_GT(check.check_data[2], 200);
  const std::string reason = LastAnswer()["reason"].GetString();
  EXPECT_EQ(reason.rfind("right laser: the stripe of ", 0), 0u) << reason;
  EXPECT_NE(reason.find(" px aside on average; at most 0.1 px pass"), std::string::npos) << reason;
  EXPECT_GT(LastAnswer()["residuals"]["right"]["bias_px"].GetDouble(), 0.1);
  EXPECT_LT(LastAnswer()["residuals"]["left"]["bias_px"].GetDouble(), 0.05);
}

TEST_F(ComputingRespondersTest, WithoutSentPlanesTheCheckFailsWithCode11) {
  const std::vector<std::string> paths = StoreFactoryRound();
  EXPECT_EQ(CheckAnswer(paths).check_result, 11);
  EXPECT_EQ(std::string(LastAnswer()["reason"].GetString()),
            "no planes to check: the computing plane node has sent none");
}

TEST_F(ComputingRespondersTest, WithoutPlanesTheDistanceNodeFailsWithCode11) {
  // No plane node has sent planes, and kivrun configures none: the true
  // planes never reach the node.
  Store(DisLeft(), 23.7, 1);
  Store(DisRight(), 23.7, 8);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.kind, 1);
  EXPECT_EQ(answer.status, 11);
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["planes"].GetString(), "none");
  EXPECT_EQ(std::string(event["reason"].GetString()),
            "no planes to measure with: no plane node has sent planes, and none are configured");
}

TEST_F(ComputingRespondersTest, WithoutACameraModelEveryNodeRefusesWithCode18) {
  calc_nodes_.SetCameraModel("");
  const std::vector<std::string> paths = StoreFactoryRound();
  EXPECT_EQ(PlaneAnswer(paths).result, 18);
  EXPECT_EQ(std::string(LastAnswer()["reason"].GetString()),
            "no camera model: the node was given none (\"camera\" or \"camera_file\")");
  EXPECT_FALSE(LastAnswer().HasMember("lasers"));  // no plane was fitted to set beside the truth
  EXPECT_EQ(CheckAnswer(paths).check_result, 18);
  Store(DisLeft(), 30, 1);
  Store(DisRight(), 30, 8);
  EXPECT_EQ(DistanceAnswer().status, 18);
}

TEST_F(ComputingRespondersTest, TheDistanceNodeUsesThePlanesTheNodeSent) {
  SendPlanes();
  Store(DisLeft(), 31.2, 1);
  Store(DisRight(), 31.2, 8);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.status, 0);
  EXPECT_NEAR(answer.distance, 3120, 5);
  EXPECT_STREQ(LastAnswer()["planes"].GetString(), "sent");
  EXPECT_LT(std::fabs(LastAnswer()["errors"]["distance_mm"].GetDouble()), 0.5);
}

TEST_F(ComputingRespondersTest, WithoutAWallTheDistanceFailsWithCode12) {
  SendPlanes();
  sim::Scene scene = sim::GetScene();
  scene.wall = false;
  sim::SetScene(scene);
  Store(DisLeft(), 30, 1);
  Store(DisRight(), 30, 8);
  EXPECT_EQ(DistanceAnswer().status, 12);
  EXPECT_EQ(std::string(LastAnswer()["reason"].GetString()).rfind("left laser: " + DisLeft(), 0),
            0u);
}

TEST_F(ComputingRespondersTest, LasersThatSeeDifferentWallsFailWithCode13) {
  SendPlanes();
  Store(DisLeft(), 30, 1);
  Store(DisRight(), 31, 8);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.status, 13);
  EXPECT_NEAR(answer.far_values[0], 3000, 5);  // each wall is still told
  EXPECT_NEAR(answer.far_values[4], 3100, 5);
  const std::string reason = LastAnswer()["reason"].GetString();
  EXPECT_EQ(reason.rfind("the lasers' walls lie 10.0", 0), 0u) << reason;
  EXPECT_EQ(reason.substr(reason.size() - 30), " mm apart; at most 2.0 mm pass") << reason;
}

TEST_F(ComputingRespondersTest, AComputingNodeStillRefusesMissingPicturesWithCode2) {
  const std::vector<std::string> paths = StoreFactoryRound();
  std::remove(paths[3].c_str());
  EXPECT_EQ(PlaneAnswer(paths).result, 2);
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["action"].GetString(), "refuse");
  EXPECT_EQ(std::string(event["problems"][0].GetString()), paths[3] + ": missing");
  EXPECT_FALSE(event.HasMember("lasers"));
}

TEST_F(ComputingRespondersTest, TheComputingCheckNodeRefusesAMissingPictureWithCode2) {
  const std::vector<std::string> paths = StoreFactoryRound();
  ASSERT_EQ(PlaneAnswer(paths).result, 1);
  std::remove(paths[12].c_str());
  const kiv_camera_calires_msg check = CheckAnswer(paths);
  EXPECT_EQ(check.kind, 4);
  EXPECT_EQ(check.check_result, 2);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(check.check_data[i], 0) << i;
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["action"].GetString(), "refuse");
  ASSERT_EQ(event["problems"].Size(), 1u);
  EXPECT_EQ(std::string(event["problems"][0].GetString()), paths[12] + ": missing");
  EXPECT_FALSE(event.HasMember("residuals"));
}

TEST_F(ComputingRespondersTest, TheComputingDistanceNodeRefusesAMissingPictureWithCode2) {
  Store(DisLeft(), 30, 1);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.kind, 1);
  EXPECT_EQ(answer.status, 2);
  EXPECT_EQ(answer.distance, 0);
  EXPECT_EQ(answer.far_values[0], 0);
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["action"].GetString(), "refuse");
  ASSERT_EQ(event["problems"].Size(), 1u);
  EXPECT_EQ(std::string(event["problems"][0].GetString()), DisRight() + ": missing");
  EXPECT_FALSE(event.HasMember("walls"));
}

TEST_F(ComputingRespondersTest, OnlyTheCalculationNodesComputeAndTheirPicturesMustFit) {
  ResponderSetting power = Computing("laser_power", {});
  EXPECT_THROW(responders_.Configure(power), std::invalid_argument);
  try {
    responders_.Configure(Computing("plane", {"/tmp/pic/L.bmp", "/tmp/right/1020.bmp"}));
    FAIL() << "a picture without laser and distance was taken";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(
        std::string(e.what()).find("cannot tell the laser and the distance of \"/tmp/pic/L.bmp\""),
        std::string::npos)
        << e.what();
  }
  EXPECT_THROW(responders_.Configure(Computing("check", {folder_.File("left") + "/1020.bmp"})),
               std::invalid_argument);  // no right laser
  EXPECT_THROW(responders_.Configure(Computing("distance", {DisLeft()})), std::invalid_argument);
  EXPECT_THROW(responders_.Configure(Computing("ieparam", {})), std::invalid_argument);
  EXPECT_EQ(log_text_.str().find("\"event\":\"responder\""), std::string::npos)
      << "a node that could not be set up was logged";
}

TEST_F(ComputingRespondersTest, TheSameSettingAgainKeepsTheNodeAndWhatItLearnt) {
  const std::vector<std::string> paths = StoreFactoryRound();
  responders_.Configure(Computing("check", paths));
  ASSERT_EQ(PlaneAnswer(paths).result, 1);
  EXPECT_EQ(CheckAnswer(paths).check_result, 1);  // set up again, the same
  // Set up with other pictures, the check node is a new one: no planes yet.
  std::vector<std::string> fewer(paths.begin() + 1, paths.end());
  EXPECT_EQ(CheckAnswer(fewer).check_result, 11);
}

TEST_F(ComputingRespondersTest, TheComputingCheckNodeReadsTheFactoryPicturesByDefault) {
  // The folders the calibration node makes.
  for (const char* folder : {"/tmp/left", "/tmp/right"}) std::filesystem::create_directory(folder);
  ResponderSetting setting = Computing("check", {});
  setting.has_needs = false;
  responders_.Configure(setting);
  const std::string log = log_text_.str();
  EXPECT_NE(
      log.find("\"node\":\"check\",\"listens\":\"CAMERACALICHECK\",\"answers\":"
               "\"CAMERACALICHECKRES\",\"mode\":\"compute\",\"needs\":[\"/tmp/left/560.bmp\""),
      std::string::npos)
      << log;
}

}  // namespace
