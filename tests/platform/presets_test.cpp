// The camera presets: shipped ones by name, others from a file; what a
// preset changes and what it keeps; "ideal" is the default scene, so its
// pictures are the ones the simulator always drew.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/scene.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;
using testsupport::ConfigureSim;

class PresetsTest : public ::testing::Test {
 protected:
  void SetUp() override { sim::Reset(); }
  void TearDown() override {
    sim::Reset();
    if (!file_.empty()) std::remove(file_.c_str());
  }
  // A preset file in the test's own /tmp.
  std::string Write(const std::string& name, const std::string& text) {
    file_ = "/tmp/" + name;
    std::ofstream(file_) << text;
    return file_;
  }
  std::string file_;
};

TEST_F(PresetsTest, TheShippedPresetsAreIdealRobotAndHarsh) {
  EXPECT_EQ(sim::PresetNames(), (std::vector<std::string>{"harsh", "ideal", "robot"}));
  for (const std::string& name : sim::PresetNames()) {
    rapidjson::Document doc;
    doc.Parse(sim::PresetText(name).c_str());
    ASSERT_FALSE(doc.HasParseError()) << name;
    EXPECT_TRUE(doc["description"].IsString()) << name;
    EXPECT_EQ(ConfigureSim(R"({"preset": ")" + name + "\"}"), "") << name;
  }
  EXPECT_EQ(sim::PresetText("nothing"), "");
}

TEST_F(PresetsTest, IdealIsTheDefaultSceneAndDrawsTheSamePictures) {
  APPLY_SIM(R"({"distance": 25})");
  std::vector<uint8_t> before(sim::Luminance(9), sim::Luminance(9) + sim::kWidth * sim::kHeight);
  APPLY_SIM(R"({"preset": "robot"})");
  APPLY_SIM(R"({"preset": "ideal"})");
  sim::Scene expected;
  expected.distance = 25;
  EXPECT_TRUE(sim::SameScene(sim::GetScene(), expected));
  EXPECT_EQ(std::memcmp(before.data(), sim::Luminance(9), before.size()), 0);
}

TEST_F(PresetsTest, APresetSetsTheWholeSceneButTheDistance) {
  APPLY_SIM(R"({"distance": 17, "scene": {"second_stripe": 40, "background": {"seed": 9}}})");
  APPLY_SIM(R"({"preset": "robot"})");
  const sim::Scene& s = sim::GetScene();
  EXPECT_EQ(s.distance, 17);
  EXPECT_EQ(s.second_stripe, 0);     // the preset's scene, defaults included
  EXPECT_EQ(s.background.seed, 1u);  // the preset's
  EXPECT_EQ(s.renderer, sim::Renderer::kPhysical);
  EXPECT_EQ(s.camera.k1, -0.3);
  EXPECT_EQ(sim::LaserPattern(), (std::vector<uint64_t>{1, 8}));  // not a scene setting
}

TEST_F(PresetsTest, MembersBesideThePresetChangeItWhereverTheyStand) {
  APPLY_SIM(R"({"scene": {"laser_light": {"speckle": 0.2}}, "preset": "harsh", "distance": 12})");
  EXPECT_EQ(sim::GetScene().light.speckle, 0.2);
  EXPECT_EQ(sim::GetScene().optics.focus, 15);
  EXPECT_EQ(sim::GetScene().distance, 12);
}

TEST_F(PresetsTest, APresetFileIsReadLikeAShippedOne) {
  const std::string file = Write("my_camera.json", R"({"description": "mine",
      "scene": {"renderer": "physical", "camera": {"fx": 480, "k1": -0.1}}})");
  APPLY_SIM(R"({"preset": ")" + file + "\"}");
  EXPECT_EQ(sim::GetScene().camera.fx, 480);
  EXPECT_EQ(sim::GetScene().camera.k1, -0.1);
  EXPECT_EQ(sim::GetScene().camera.fy, 450);  // the default scene's
}

TEST_F(PresetsTest, BadPresetsAreRefusedNamingWhatIsWrong) {
  EXPECT_EQ(ConfigureSim(R"({"preset": "robt"})"),
            "camera sim: preset must be harsh, ideal or robot, or a file ending in .json (not "
            "'robt')");
  EXPECT_EQ(ConfigureSim(R"({"preset": 3})"),
            "camera sim: preset must be the name of a preset or a file ending in .json");
  EXPECT_EQ(ConfigureSim(R"({"preset": "missing.json"})"),
            "camera sim: preset file 'missing.json' does not exist or is not a file");
  Write("bad.json", R"({"scene": {"camera": {"fx": "wide"}}})");
  EXPECT_EQ(ConfigureSim(R"({"preset": "/tmp/bad.json"})"),
            "camera sim: preset file '/tmp/bad.json': scene.camera.fx must be a number");
  Write("bad.json", R"({"scene": {}, "lasers": 2})");
  EXPECT_EQ(ConfigureSim(R"({"preset": "/tmp/bad.json"})"),
            "camera sim: preset file '/tmp/bad.json': lasers is not a camera setting");
  Write("bad.json", R"({"scene": )");
  EXPECT_EQ(ConfigureSim(R"({"preset": "/tmp/bad.json"})")
                .rfind("camera sim: preset file '/tmp/bad.json' is not JSON: ", 0),
            0u);
  // A preset whose scene is refused as a whole: nothing changes.
  Write("bad.json", R"({"scene": {"renderer": "physical", "optics": {"f_number": 0}}})");
  EXPECT_EQ(ConfigureSim(R"({"preset": "/tmp/bad.json"})"),
            "camera sim: scene.optics.f_number must be between 0.5 and 100");
  EXPECT_EQ(sim::GetScene().renderer, sim::Renderer::kIdeal);
}

}  // namespace
