// The ideal camera's pictures stay what they were: a hash of every picture
// the simulator drew before lens, optics and sensor models existed, for
// every distance the rounds use, every combination of the lasers, the
// settings the shipped scenarios play, and brightness scaled by exposure. The hashes were taken
// from that simulator; the expected event logs hold the same pictures.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/sunxi_cam.h"

namespace {

namespace sim = sunxi_cam::sim;

uint64_t Fnv1a(const uint8_t* bytes, std::size_t size, uint64_t hash = 0xcbf29ce484222325ull) {
  for (std::size_t i = 0; i < size; ++i) {
    hash ^= bytes[i];
    hash *= 0x100000001b3ull;
  }
  return hash;
}

void Apply(const std::string& json) {
  rapidjson::Document settings;
  settings.Parse(json.c_str());
  ASSERT_FALSE(settings.HasParseError()) << json;
  sim::Configure(settings);
}

// One hash over the pictures of every combination of the two lasers: none
// (0), left (1), right (8), both (9). The other laser fields draw as one of
// these with another noise.
uint64_t HashAllFields() {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (uint64_t laser : {0, 1, 8, 9}) {
    hash = Fnv1a(sim::Luminance(laser), sim::kWidth * sim::kHeight, hash);
  }
  return hash;
}

std::string Hex(uint64_t hash) {
  char text[20];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

struct Case {
  const char* settings;  // applied after a reset
  const char* hash;      // of the pictures of each combination of the lasers
};

// Every distance of the factory and app rounds and the distance check, with
// the defaults; then the settings of the shipped scenarios; then scenes the
// calibration accuracy run draws (lasers turned and moved, noise, ambient).
const Case kCases[] = {
    {R"({"distance": 5})", "69b498f68cf6d583"},
    {R"({"distance": 10})", "d3bceb8835c5e2d6"},
    {R"({"distance": 15})", "14b0509c18b21b86"},
    {R"({"distance": 20})", "86ce6da43d0f878b"},
    {R"({"distance": 25})", "4d53d2f31b03d4d5"},
    {R"({"distance": 27.5})", "591ffd726a488ee7"},
    {R"({"distance": 30})", "a3ce6495aa637fff"},
    {R"({"distance": 35})", "acc349d47ba3a70a"},
    {R"({"distance": 40})", "314602666a73c131"},
    {R"({"distance": 45})", "b80933fb604356b4"},
    {R"({"distance": 20, "scene": {"second_stripe": 40}})", "d888ad84395b6f4e"},
    {R"({"distance": 30, "scene": {"second_stripe": 0, "wall": false}})", "ec5f86e06e455ee5"},
    {R"({"distance": 35, "scene": {"left_laser": {"roll": 2}}})", "a85d56f50fc1fc8d"},
    {R"({"distance": 30, "scene": {"gap_rows": [0, 440]}})", "5736e220aa259d62"},
    {R"({"distance": 12.5, "scene": {"left_laser": {"yaw": -6.5, "roll": 2.5, "x": 0.4, "y": 2.9},
        "right_laser": {"yaw": 4, "roll": -3, "z": 1.2},
        "background": {"noise": 3.5, "ambient": 12, "seed": 77}}})",
     "c63bb6da0eb52cfc"},
    {R"({"distance": 42, "scene": {"camera": {"height": 4, "pitch": 15},
        "stripe": {"core": 3, "edge": 1.5, "peak": 200}}})",
     "c3d9ef3a084797cd"},
};

TEST(IdealPicturesTest, EveryPictureIsTheOneDrawnBefore) {
  for (const Case& c : kCases) {
    sim::Reset();
    Apply(c.settings);
    EXPECT_EQ(Hex(HashAllFields()), c.hash) << c.settings;
  }
  sim::Reset();
}

// Brightness scaled by exposure x gain (the setting "exposure_scaling"),
// with the exposures and gains of the node's tables.
TEST(IdealPicturesTest, ExposureScaledPicturesAreTheOnesDrawnBefore) {
  const int settings[][2] = {{600, 4}, {1900, 4}, {1900, 32}, {1900, 48}, {1200, 4}, {8000, 32}};
  const char* const expected[] = {"89489372918756ce", "7f861ab6b10994ff", "a3ce6495aa637fff",
                                  "69eb65fbb7b173a1", "7445d3dd2916cb95", "00396c2762028cca"};
  for (std::size_t i = 0; i < sizeof settings / sizeof settings[0]; ++i) {
    sim::Reset();
    Apply(R"({"distance": 30, "scene": {"exposure_scaling": true}})");
    sunxi_cam::SunxiCam camera;
    ASSERT_TRUE(camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480));
    ASSERT_TRUE(camera.setExposureGain(settings[i][0], settings[i][1]));
    EXPECT_EQ(Hex(HashAllFields()), expected[i]) << settings[i][0] << "/" << settings[i][1];
    camera.CloseCamera();
  }
  sim::Reset();
}

}  // namespace
