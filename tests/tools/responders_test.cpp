// The simulated calculation nodes of kivrun: when and what they answer.
#include "tools/kivrun/responders.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "msgs/calimsgs.h"
#include "platform/kiv/host.h"
#include "platform/sunxi_cam/camera_sim.h"

namespace {

using kivrun::ResponderSetting;

// A folder of its own, removed after the test.
class TempFolder {
 public:
  TempFolder() {
    char pattern[] = "/tmp/responders_test.XXXXXX";
    path_ = mkdtemp(pattern);
  }
  ~TempFolder() { std::system(("rm -rf '" + path_ + "'").c_str()); }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

void WritePicture(const std::string& path, int rows, int cols, int type) {
  ASSERT_TRUE(cv::imwrite(path, cv::Mat(rows, cols, type, cv::Scalar::all(7))));
}

ResponderSetting Setting(const std::string& node, const char* answer = "{}") {
  ResponderSetting setting;
  setting.node = node;
  setting.answer = kivrun::JsonText::FromText(answer);
  setting.has_needs = true;  // no pictures unless a test names them
  return setting;
}

TEST(PictureProblemTest, NamesWhatIsWrong) {
  TempFolder folder;
  EXPECT_EQ(kivrun::PictureProblem(folder.File("none.bmp")), "missing");
  std::ofstream(folder.File("text.bmp")) << "hello, this is not a picture at all";
  EXPECT_EQ(kivrun::PictureProblem(folder.File("text.bmp")), "not a BMP file");
  WritePicture(folder.File("small.bmp"), 240, 320, CV_8UC1);
  EXPECT_EQ(kivrun::PictureProblem(folder.File("small.bmp")), "320 x 240, not 640 x 480");
  WritePicture(folder.File("colour.bmp"), 480, 640, CV_8UC3);
  EXPECT_EQ(kivrun::PictureProblem(folder.File("colour.bmp")), "24-bit, not 8-bit");
  WritePicture(folder.File("good.bmp"), 480, 640, CV_8UC1);
  EXPECT_EQ(kivrun::PictureProblem(folder.File("good.bmp")), "");
}

TEST(FactoryPlanePicturesTest, LeftAndRightOfEveryDistanceNumberedWithTheOffset) {
  const std::vector<std::string> paths = kivrun::FactoryPlanePictures(60);
  ASSERT_EQ(paths.size(), 18u);
  EXPECT_EQ(paths.front(), "/tmp/left/560.bmp");
  EXPECT_EQ(paths[8], "/tmp/left/4560.bmp");
  EXPECT_EQ(paths[9], "/tmp/right/560.bmp");
  EXPECT_EQ(paths.back(), "/tmp/right/4560.bmp");
}

class RespondersTest : public ::testing::Test {
 protected:
  RespondersTest() : log_(log_text_), responders_(host_, log_, 60) {
    log_.SetClock([this] { return host_.Loop().Now(); });
    host_.Subscribe<LaserClibrMsg>("tool", "LASER_CALIBR_REQRES",
                                   [this](LaserClibrMsg* m) { planes_.push_back(*m); });
    host_.Subscribe<kiv_laserpower_msg>("tool", "LASERPOWER",
                                        [this](kiv_laserpower_msg* m) { powers_.push_back(*m); });
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

  kiv::Host host_;
  std::ostringstream log_text_;
  kivrun::EventLog log_;
  kivrun::Responders responders_;
  std::vector<LaserClibrMsg> planes_;
  std::vector<kiv_laserpower_msg> powers_;
};

TEST_F(RespondersTest, AnswersOneTickLaterNotFromInsideTheRequest) {
  responders_.Configure(Setting("plane", R"({"plane_data": [1, 2, 3, 4, 5, 6, 7, 8, 9]})"));
  RequestPlane();
  EXPECT_TRUE(planes_.empty());
  host_.Loop().Advance(9999);
  EXPECT_TRUE(planes_.empty());
  host_.Loop().Advance(1);
  ASSERT_EQ(planes_.size(), 1u);
  EXPECT_EQ(planes_[0].kind, 2);
  EXPECT_EQ(planes_[0].result, 1);
  EXPECT_EQ(planes_[0].plane_data[0], 1);
  EXPECT_EQ(planes_[0].plane_data[8], 9);
  EXPECT_NE(log_text_.str().find("\"event\":\"answer\",\"node\":\"plane\",\"action\":\"answer\""),
            std::string::npos);
}

TEST_F(RespondersTest, EveryRequestGetsItsOwnAnswerAfterTheGivenDelay) {
  ResponderSetting setting = Setting("plane");
  setting.delay_us = 30000;
  responders_.Configure(setting);
  RequestPlane();
  RequestPlane();
  host_.Loop().Advance(29999);
  EXPECT_TRUE(planes_.empty());
  host_.Loop().Advance(1);
  EXPECT_EQ(planes_.size(), 2u);
}

TEST_F(RespondersTest, FailPutsTheCodeInTheResultField) {
  ResponderSetting setting = Setting("plane", R"({"plane_data": [4]})");
  setting.mode = ResponderSetting::Mode::kFail;
  setting.code = 0x102;
  responders_.Configure(setting);
  RequestPlane();
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  EXPECT_EQ(planes_[0].result, 0x102);
  EXPECT_EQ(planes_[0].plane_data[0], 4);
}

TEST_F(RespondersTest, SilentSendsNothingAndSaysSo) {
  ResponderSetting setting = Setting("plane");
  setting.mode = ResponderSetting::Mode::kSilent;
  responders_.Configure(setting);
  RequestPlane();
  host_.Loop().Advance(1000000);
  EXPECT_TRUE(planes_.empty());
  EXPECT_NE(log_text_.str().find("\"event\":\"silent\",\"node\":\"plane\""), std::string::npos);
}

TEST_F(RespondersTest, RefusesWhenAPictureIsMissingOrWrongAndNamesEach) {
  TempFolder folder;
  WritePicture(folder.File("good.bmp"), 480, 640, CV_8UC1);
  WritePicture(folder.File("colour.bmp"), 480, 640, CV_8UC3);
  ResponderSetting setting = Setting("plane");
  setting.needs = {folder.File("good.bmp"), folder.File("colour.bmp"), folder.File("gone.bmp")};
  setting.has_refuse = true;
  setting.refuse = 9;
  responders_.Configure(setting);
  RequestPlane();
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  EXPECT_EQ(planes_[0].result, 9);
  const std::string log = log_text_.str();
  EXPECT_NE(log.find("\"action\":\"refuse\""), std::string::npos);
  EXPECT_NE(log.find(folder.File("colour.bmp") + ": 24-bit, not 8-bit"), std::string::npos);
  EXPECT_NE(log.find(folder.File("gone.bmp") + ": missing"), std::string::npos);
  EXPECT_EQ(log.find(folder.File("good.bmp") + ":"), std::string::npos);
}

TEST_F(RespondersTest, RefusesWithCode2UnlessToldOtherwise) {
  ResponderSetting setting = Setting("plane");
  setting.needs = {"/nonexistent/left/560.bmp"};
  responders_.Configure(setting);
  RequestPlane();
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 1u);
  EXPECT_EQ(planes_[0].result, 2);
}

TEST_F(RespondersTest, ThePlaneNodeReadsTheFactoryPicturesByDefault) {
  ResponderSetting setting = Setting("plane");
  setting.has_needs = false;
  responders_.Configure(setting);
  const std::string log = log_text_.str();
  EXPECT_NE(log.find("\"needs\":[\"/tmp/left/560.bmp\""), std::string::npos);
  EXPECT_NE(log.find("\"/tmp/right/4560.bmp\"]"), std::string::npos);
}

TEST_F(RespondersTest, ASettingAppliesToRequestsFromThenOn) {
  responders_.Configure(Setting("plane"));
  RequestPlane();
  ResponderSetting failing = Setting("plane");
  failing.mode = ResponderSetting::Mode::kFail;
  failing.code = 7;
  responders_.Configure(failing);
  RequestPlane();
  host_.Loop().Advance(10000);
  ASSERT_EQ(planes_.size(), 2u);
  EXPECT_EQ(planes_[0].result, 1);
  EXPECT_EQ(planes_[1].result, 7);
}

TEST_F(RespondersTest, TheLaserPowerNodeTakesOnlyType5Records) {
  responders_.Configure(Setting("laser_power", R"({"power_a": 812, "power_b": 797})"));
  kiv_camera_calires_msg record;
  for (uint8_t kind : {1, 2, 4, 5}) {
    record.kind = kind;
    Publish("CAMERACALIRES", record);
  }
  host_.Loop().Advance(10000);
  ASSERT_EQ(powers_.size(), 1u);
  EXPECT_EQ(powers_[0].power_a, 812);
  EXPECT_EQ(powers_[0].power_b, 797);
}

TEST_F(RespondersTest, TheOtherNodesAnswerOnTheirTopicsWithTheirDefaults) {
  std::vector<kiv_camera_calires_msg> checks;
  std::vector<kiv_camera_distance_msg> distances;
  std::vector<CameraClibrIEParamMsg> ieparams;
  host_.Subscribe<kiv_camera_calires_msg>("tool", "CAMERACALICHECKRES",
                                          [&](kiv_camera_calires_msg* m) { checks.push_back(*m); });
  host_.Subscribe<kiv_camera_distance_msg>(
      "tool", "APPDISTANCERES", [&](kiv_camera_distance_msg* m) { distances.push_back(*m); });
  host_.Subscribe<CameraClibrIEParamMsg>("tool", "CAMERACALI_IEPARAMRES",
                                         [&](CameraClibrIEParamMsg* m) { ieparams.push_back(*m); });
  responders_.Configure(Setting("check", R"({"check_data": [1, 2, 3, 4], "check_result": 49})"));
  responders_.Configure(Setting("distance", R"({"distance": 300, "near_values": [-1]})"));
  responders_.Configure(Setting("ieparam", R"({"ieparam1": 200, "ieparam3": 1234})"));
  Publish("CAMERACALICHECK", kiv_camera_calicheck_msg{});
  Publish("DISTANCESTARTCACULATE", kiv_camera_distance_msg{});
  Publish("CAMERACALI_IEPARAM", CameraClibrIEParamMsg{});
  host_.Loop().Advance(10000);
  ASSERT_EQ(checks.size(), 1u);
  EXPECT_EQ(checks[0].kind, 4);
  EXPECT_EQ(checks[0].check_data[3], 4);
  EXPECT_EQ(checks[0].check_result, 49);
  ASSERT_EQ(distances.size(), 1u);
  EXPECT_EQ(distances[0].kind, 1);
  EXPECT_EQ(distances[0].distance, 300);
  EXPECT_EQ(distances[0].near_values[0], -1);
  ASSERT_EQ(ieparams.size(), 1u);
  EXPECT_EQ(ieparams[0].ieparam1, 200);
  EXPECT_EQ(ieparams[0].ieparam3, 1234);
}

TEST_F(RespondersTest, UnknownNodesAndBadFieldsAreRefusedAtOnce) {
  try {
    responders_.Configure(Setting("planes"));
    FAIL() << "an unknown node was accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("no simulated node \"planes\""), std::string::npos);
    EXPECT_NE(std::string(e.what()).find("plane, check, ieparam, distance, laser_power"),
              std::string::npos);
  }
  EXPECT_THROW(responders_.Configure(Setting("plane", R"({"plane": 1})")), std::invalid_argument);
  EXPECT_THROW(responders_.Configure(Setting("check", R"({"check_result": 256})")),
               std::invalid_argument);
  ResponderSetting setting = Setting("laser_power");
  setting.mode = ResponderSetting::Mode::kFail;
  setting.code = 70000;  // does not fit the 16-bit powers
  EXPECT_THROW(responders_.Configure(setting), std::invalid_argument);
}

// --- Computing nodes ----------------------------------------------------------

namespace sim = sunxi_cam::sim;

TEST(StripePictureOfTest, TheFolderNamesTheLaserAndTheNumberTheDistance) {
  bool left = false;
  int distance = 0;
  ASSERT_TRUE(kivrun::StripePictureOf("/tmp/left/560.bmp", &left, &distance));
  EXPECT_TRUE(left);
  EXPECT_EQ(distance, 5);
  ASSERT_TRUE(kivrun::StripePictureOf("/x/y/right/4560.bmp", &left, &distance));
  EXPECT_FALSE(left);
  EXPECT_EQ(distance, 45);
  ASSERT_TRUE(kivrun::StripePictureOf("right/3020.bmp", &left, &distance));
  EXPECT_EQ(distance, 30);
  for (const char* path :
       {"/tmp/pic/L.bmp", "/tmp/left/L.bmp", "/tmp/left/99.bmp", "/tmp/left/560.png",
        "/tmp/lefty/560.bmp", "560.bmp", "/tmp/left/5a0.bmp", "/tmp/left/.bmp"}) {
    EXPECT_FALSE(kivrun::StripePictureOf(path, &left, &distance)) << path;
  }
}

class ComputingRespondersTest : public RespondersTest {
 protected:
  ComputingRespondersTest() {
    sim::Reset();
    host_.Subscribe<kiv_camera_calires_msg>(
        "tool", "CAMERACALICHECKRES", [this](kiv_camera_calires_msg* m) { checks_.push_back(*m); });
    host_.Subscribe<kiv_camera_distance_msg>(
        "tool", "APPDISTANCERES", [this](kiv_camera_distance_msg* m) { distances_.push_back(*m); });
    for (const char* side : {"left", "right", "pic"}) {
      std::system(("mkdir -p '" + folder_.File(side) + "'").c_str());
    }
  }
  ~ComputingRespondersTest() override { sim::Reset(); }

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

  TempFolder folder_;
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
  ASSERT_EQ(PlaneAnswer(paths).result, 1);
  // The right laser leans half a degree more than when it was calibrated.
  SetLasers(sim::GetScene().left, {0, -2.2, 2, 2, 0.5, true});
  StoreFactoryRound();
  const kiv_camera_calires_msg check = CheckAnswer(paths);
  EXPECT_EQ(check.check_result, 10);
  EXPECT_LT(check.check_data[0], 100);
  EXPECT_GT(check.check_data[2], 200);
  EXPECT_NE(std::string(LastAnswer()["reason"].GetString()).find("right laser: residuals of "),
            std::string::npos);
}

TEST_F(ComputingRespondersTest, WithoutSentPlanesTheCheckFailsWithCode11) {
  const std::vector<std::string> paths = StoreFactoryRound();
  EXPECT_EQ(CheckAnswer(paths).check_result, 11);
  EXPECT_EQ(std::string(LastAnswer()["reason"].GetString()),
            "no planes to check: the computing plane node has sent none");
}

TEST_F(ComputingRespondersTest, TheDistanceNodeMeasuresTheWall) {
  sim::Scene scene = sim::GetScene();
  scene.distance = 23.7;
  sim::SetScene(scene);
  Store(DisLeft(), 23.7, 1);
  Store(DisRight(), 23.7, 8);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.kind, 1);
  EXPECT_EQ(answer.status, 0);
  EXPECT_NEAR(answer.distance, 2370, 3);  // tenths of a millimetre
  EXPECT_NEAR(answer.far_values[0], 2370, 3);
  EXPECT_NEAR(answer.far_values[4], 2370, 3);
  EXPECT_GT(answer.far_values[3], 100);         // wall points
  EXPECT_NEAR(answer.near_values[0], 640, 20);  // the floor from 64 mm on
  const rapidjson::Document event = LastAnswer();
  EXPECT_STREQ(event["planes"].GetString(), "true");  // none were sent
  EXPECT_EQ(event["truth"]["distance_mm"].GetDouble(), 237);
  EXPECT_LT(std::fabs(event["errors"]["distance_mm"].GetDouble()), 0.5);
}

TEST_F(ComputingRespondersTest, TheDistanceNodeUsesThePlanesTheNodeSent) {
  ASSERT_EQ(PlaneAnswer(StoreFactoryRound()).result, 1);
  Store(DisLeft(), 31.2, 1);
  Store(DisRight(), 31.2, 8);
  const kiv_camera_distance_msg answer = DistanceAnswer();
  EXPECT_EQ(answer.status, 0);
  EXPECT_NEAR(answer.distance, 3120, 5);
  EXPECT_STREQ(LastAnswer()["planes"].GetString(), "sent");
  EXPECT_LT(std::fabs(LastAnswer()["errors"]["distance_mm"].GetDouble()), 0.5);
}

TEST_F(ComputingRespondersTest, WithoutAWallTheDistanceFailsWithCode12) {
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

TEST_F(ComputingRespondersTest, OnlyThePlaneCheckAndDistanceNodesCompute) {
  ResponderSetting ieparam = Computing("ieparam", {});
  EXPECT_THROW(responders_.Configure(ieparam), std::invalid_argument);
  try {
    responders_.Configure(Computing("plane", {"/tmp/pic/L.bmp", "/tmp/right/1020.bmp"}));
    FAIL() << "a picture without laser and distance was taken";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(
        std::string(e.what()).find("cannot tell the laser and the distance of \"/tmp/pic/L.bmp\""),
        std::string::npos)
        << e.what();
  }
  EXPECT_THROW(responders_.Configure(Computing("check", {"/tmp/left/1020.bmp"})),
               std::invalid_argument);  // no right laser
  EXPECT_THROW(responders_.Configure(Computing("distance", {"/tmp/pic/dis_left.bmp"})),
               std::invalid_argument);
}

TEST_F(ComputingRespondersTest, TheComputingCheckNodeReadsTheFactoryPicturesByDefault) {
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
