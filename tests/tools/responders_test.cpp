// The scripted calculation nodes of kivrun: when and what they answer.
#include "tools/kivrun/responders.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdio>
#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "msgs/calimsgs.h"
#include "platform/kiv/host.h"
#include "tests/support/temp_folder.h"

namespace {

using kivrun::ResponderSetting;

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
  testsupport::TempFolder folder;
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

TEST_F(RespondersTest, AComputingSettingGoesToTheComputingNodesOnly) {
  ResponderSetting computing = Setting("plane");
  computing.mode = ResponderSetting::Mode::kCompute;
  // Without computing nodes there is nobody to compute.
  EXPECT_THROW(responders_.Configure(computing), std::invalid_argument);

  struct Computing : kivrun::ComputingNodes {
    void Compute(const ResponderSetting& setting) override { computed.push_back(setting.node); }
    void Retire(const std::string& node) override { retired.push_back(node); }
    std::vector<std::string> computed, retired;
  } nodes;
  responders_.SetComputingNodes(&nodes);
  responders_.Configure(Setting("plane"));  // scripted first: it answers
  responders_.Configure(computing);         // then the computing node does
  RequestPlane();
  host_.Loop().Advance(10000);
  EXPECT_TRUE(planes_.empty()) << "the scripted node answered for the computing one";
  EXPECT_EQ(nodes.computed, std::vector<std::string>{"plane"});
  EXPECT_EQ(nodes.retired, std::vector<std::string>{"plane"});
  EXPECT_NE(log_text_.str().find("\"node\":\"plane\",\"listens\":\"LASER_CALIBR_REQ\","
                                 "\"answers\":\"LASER_CALIBR_REQRES\",\"mode\":\"compute\""),
            std::string::npos);
  responders_.Configure(Setting("plane"));  // scripted again
  RequestPlane();
  host_.Loop().Advance(10000);
  EXPECT_EQ(planes_.size(), 1u);
  EXPECT_EQ(nodes.retired.size(), 2u);
  // The laser power node does not compute.
  ResponderSetting power = Setting("laser_power");
  power.mode = ResponderSetting::Mode::kCompute;
  EXPECT_THROW(responders_.Configure(power), std::invalid_argument);
}

}  // namespace
