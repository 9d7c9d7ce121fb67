// stripe-inspect names the pictures that would spoil a calibration, as the
// calculation nodes judge them (calc::JudgeStripe): simulator pictures of
// the robot and harsh presets, exposed well, so long that the stripe
// clips, so short that it drowns in the background, with no laser on, and
// with a laser sheet so thick that the stripe is a blur.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "tests/support/program_run.h"
#include "tests/support/sim_settings.h"
#include "tests/support/temp_folder.h"
#include "tools/stripe_tool/findings.h"

namespace {

namespace sim = sunxi_cam::sim;
using testsupport::ReadFile;
using testsupport::TempFolder;

constexpr unsigned kLeftLaser = 1;

class StripeVerdictTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }

  // The picture the camera shows of `lasers` under `settings`, at exposure and gain.
  cv::Mat Picture(const std::string& settings, unsigned lasers, int exposure, int gain) {
    EXPECT_EQ(testsupport::ConfigureSim(settings), "") << settings;
    cv::Mat picture(sim::kHeight, sim::kWidth, CV_8UC1);
    sim::RenderPhysical(sim::GetScene(), lasers, exposure, gain, picture.data);
    return picture;
  }

  // The verdict on `picture`, as the findings keep it.
  stripetool::Inspection Judge(const cv::Mat& picture) {
    stripetool::Inspection inspection;
    stripetool::JudgeForCalibration(picture.data, picture.cols, picture.rows,
                                    static_cast<int>(picture.step), &inspection);
    return inspection;
  }

  // stripe-inspect --json on `picture`, written as `name` in the test's folder.
  rapidjson::Document Inspect(const cv::Mat& picture, const std::string& name) {
    const std::string path = folder_.File(name);
    EXPECT_TRUE(cv::imwrite(path, picture));
    const std::string command =
        std::string(STRIPE_INSPECT) + " --json '" + path + "' >" + folder_.File("out.json");
    const int raw = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << command;
    rapidjson::Document json;
    json.Parse(ReadFile(folder_.File("out.json")).c_str());
    EXPECT_FALSE(json.HasParseError());
    return json;
  }

  TempFolder folder_;
};

constexpr char kRobot[] = R"({"reset": true, "preset": "robot", "distance": 20})";
constexpr char kHarsh[] = R"({"reset": true, "preset": "harsh", "distance": 20})";

TEST_F(StripeVerdictTest, WellExposedStripeIsUsable) {
  for (const char* settings : {kRobot, kHarsh}) {
    const stripetool::Inspection good = Judge(Picture(settings, kLeftLaser, 1900, 32));
    EXPECT_EQ(good.calibration, "usable") << settings << ": " << good.calibration_reason;
    EXPECT_EQ(good.calibration_reason, "");
  }
}

TEST_F(StripeVerdictTest, ClippedStripeIsSaturated) {
  const stripetool::Inspection burnt = Judge(Picture(kRobot, kLeftLaser, 60000, 32));
  EXPECT_EQ(burnt.calibration, "saturated") << burnt.calibration_reason;
  EXPECT_EQ(burnt.calibration_reason.rfind("saturated stripe (", 0), 0u)
      << burnt.calibration_reason;
}

TEST_F(StripeVerdictTest, DrownedOrMissingStripeIsNoStripe) {
  const stripetool::Inspection dim = Judge(Picture(kHarsh, kLeftLaser, 40, 16));
  EXPECT_EQ(dim.calibration, "no_stripe") << dim.calibration_reason;
  const stripetool::Inspection dark = Judge(Picture(kRobot, 0, 1900, 32));
  EXPECT_EQ(dark.calibration, "no_stripe") << dark.calibration_reason;
  EXPECT_EQ(dark.calibration_reason.rfind("no stripe (", 0), 0u) << dark.calibration_reason;
}

TEST_F(StripeVerdictTest, ThickSheetIsTooBlurred) {
  const stripetool::Inspection wide = Judge(Picture(
      R"({"reset": true, "preset": "robot", "distance": 20,
          "scene": {"laser_light": {"width": 12, "power": 400}}})",
      kLeftLaser, 1900, 32));
  EXPECT_EQ(wide.calibration, "too_blurred") << wide.calibration_reason;
  EXPECT_EQ(wide.calibration_reason.rfind("too blurred (", 0), 0u) << wide.calibration_reason;
}

TEST_F(StripeVerdictTest, StripeInspectSaysItOfAPicture) {
  const rapidjson::Document good = Inspect(Picture(kRobot, kLeftLaser, 1900, 32), "good.png");
  EXPECT_STREQ(good["calibration"].GetString(), "usable");
  EXPECT_TRUE(good["calibration_reason"].IsNull());

  const cv::Mat burnt = Picture(kRobot, kLeftLaser, 60000, 32);
  const rapidjson::Document json = Inspect(burnt, "burnt.png");
  EXPECT_STREQ(json["calibration"].GetString(), "saturated");
  EXPECT_EQ(json["calibration_reason"].GetString(), Judge(burnt).calibration_reason);

  // The text report and the list's summary say it in the same words.
  const std::string text_command = std::string(STRIPE_INSPECT) + " '" + folder_.File("burnt.png") +
                                   "' >" + folder_.File("out.txt");
  ASSERT_EQ(std::system(text_command.c_str()), 0);
  EXPECT_NE(ReadFile(folder_.File("out.txt"))
                .find("\ncalibration  would spoil a calibration: " +
                      Judge(burnt).calibration_reason + "\n"),
            std::string::npos)
      << ReadFile(folder_.File("out.txt"));
  const std::string list_command = std::string(STRIPE_INSPECT) + " '" + folder_.path() + "' >" +
                                   folder_.File("out.txt");
  ASSERT_EQ(std::system(list_command.c_str()), 0);
  const std::string list = ReadFile(folder_.File("out.txt"));
  EXPECT_NE(list.find("\nwould spoil a calibration (1):\n"), std::string::npos) << list;
  EXPECT_NE(list.find("burnt.png  left   " + Judge(burnt).calibration_reason + "\n"),
            std::string::npos)
      << list;
}

}  // namespace
