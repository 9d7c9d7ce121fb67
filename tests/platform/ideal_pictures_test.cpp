// The ideal camera's pictures stay what they were: a hash of every picture
// the simulator drew before lens, optics and sensor models existed, for
// every distance the rounds use, every laser field, the settings the shipped
// scenarios play, and brightness scaled by exposure. The hashes were taken
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

// One hash over the pictures of all sixteen laser fields.
uint64_t HashAllFields() {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (uint64_t laser = 0; laser < 16; ++laser) {
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
  const char* hash;      // of the sixteen laser fields' pictures
};

// Every distance of the factory and app rounds and the distance check, with
// the defaults; then the settings of the shipped scenarios; then scenes the
// calibration accuracy run draws (lasers turned and moved, noise, ambient).
const Case kCases[] = {
    {R"({"distance": 5})", "09f075f03972399e"},
    {R"({"distance": 10})", "bacb6d7dec5b9caa"},
    {R"({"distance": 15})", "e3d2186baf62521b"},
    {R"({"distance": 20})", "2d8e22ccb20f5303"},
    {R"({"distance": 25})", "7f9302823ee03daa"},
    {R"({"distance": 27.5})", "f66a2204bfd9def6"},
    {R"({"distance": 30})", "05a750f5dc413f0e"},
    {R"({"distance": 35})", "61a0050ed21d45a8"},
    {R"({"distance": 40})", "c6ca1822f1eeb528"},
    {R"({"distance": 45})", "977a902540dbe8ad"},
    {R"({"distance": 20, "scene": {"second_stripe": 40}})", "cd3349961c0bc910"},
    {R"({"distance": 30, "scene": {"second_stripe": 0, "wall": false}})", "49a8bb25c1265d0c"},
    {R"({"distance": 35, "scene": {"left_laser": {"roll": 2}}})", "94b3b5d5e31cf544"},
    {R"({"distance": 30, "scene": {"gap_rows": [0, 440]}})", "3eb93931f0e07feb"},
    {R"({"distance": 12.5, "scene": {"left_laser": {"yaw": -6.5, "roll": 2.5, "x": 0.4, "y": 2.9},
        "right_laser": {"yaw": 4, "roll": -3, "z": 1.2},
        "background": {"noise": 3.5, "ambient": 12, "seed": 77}}})",
     "4add0e746d756f4a"},
    {R"({"distance": 42, "scene": {"camera": {"height": 4, "pitch": 15},
        "stripe": {"core": 3, "edge": 1.5, "peak": 200}}})",
     "63f9f854750bf9a5"},
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
  const char* const expected[] = {"6e5bfd37c7d81d60", "f407ee00cd286c72", "05a750f5dc413f0e",
                                  "ed6c8b2fe1c18afa", "cd60d5d0355b77aa", "93e197dc7b5e699f"};
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
