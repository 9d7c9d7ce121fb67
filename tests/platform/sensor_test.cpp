// The physical renderer's sensor: exposure and gain scale the signal, the
// noise has the variance of shot and read noise, the fixed pattern adds
// its own, values clip at 0 and 255, and a picture is a fixed function of
// its settings and seed. Measured on an evenly lit picture (ambient light
// only, no vignetting).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "platform/sunxi_cam/sunxi_cam.h"
#include "tests/support/sim_settings.h"

namespace {

namespace sim = sunxi_cam::sim;
constexpr std::size_t kPixels = static_cast<std::size_t>(sim::kWidth) * sim::kHeight;

class SensorTest : public ::testing::Test {
 protected:
  void TearDown() override { sim::Reset(); }

  // An evenly lit picture: `ambient` grey levels at the reference setting
  // (1900, 32), black level 6, 35 electrons a grey level at 1x.
  void EvenLight(double ambient, const std::string& sensor = "") {
    char json[500];
    std::snprintf(json, sizeof json,
                  R"({"reset": true, "scene": {"renderer": "physical",
                  "optics": {"vignetting": 1}, "background": {"level": 6, "ambient": %g},
                  "sensor": {"conversion": 35, "full_well": 9000, "read_noise": 6,
                  "prnu": 0, "gain_unit": 16%s}}})",
                  ambient, sensor.c_str());
    APPLY_SIM(json);
  }

  std::vector<uint8_t> Picture(int exposure, int gain, unsigned lasers = 0) {
    std::vector<uint8_t> picture(kPixels);
    sim::RenderPhysical(sim::GetScene(), lasers, exposure, gain, picture.data());
    return picture;
  }
};

struct Moments {
  double mean = 0, variance = 0;
};
Moments Measure(const std::vector<uint8_t>& picture) {
  double sum = 0, sum2 = 0;
  for (uint8_t p : picture) {
    sum += p;
    sum2 += static_cast<double>(p) * p;
  }
  Moments m;
  m.mean = sum / picture.size();
  m.variance = sum2 / picture.size() - m.mean * m.mean;
  return m;
}

TEST_F(SensorTest, ExposureAndGainScaleTheSignalAndGainStartsAt1x) {
  EvenLight(40);
  // The reference setting: 40 above the black level.
  EXPECT_NEAR(Measure(Picture(1900, 32)).mean, 46, 0.05);
  EXPECT_NEAR(Measure(Picture(950, 32)).mean, 26, 0.05);   // half the exposure
  EXPECT_NEAR(Measure(Picture(1900, 48)).mean, 66, 0.05);  // 3x over 2x
  EXPECT_NEAR(Measure(Picture(1900, 16)).mean, 26, 0.05);  // 1x
  // Below 1x the sensor stays at 1x: gain 4 is gain 16.
  EXPECT_EQ(Picture(1900, 4) == Picture(1900, 16), false);  // other noise
  EXPECT_NEAR(Measure(Picture(1900, 4)).mean, Measure(Picture(1900, 16)).mean, 0.05);
}

TEST_F(SensorTest, TheNoiseHasTheVarianceOfShotAndReadNoise) {
  const int settings[][2] = {{1900, 32}, {600, 48}, {1900, 48}, {8000, 32}};
  for (const auto& s : settings) {
    EvenLight(20);
    const Moments m = Measure(Picture(s[0], s[1]));
    const double gain = std::max(s[1], 16) / 16.0;
    const double electrons = 20 * (35 / 2.0) * s[0] / 1900.0;
    const double signal = electrons * gain / 35;
    const double noise = (electrons + 36) * (gain / 35) * (gain / 35);
    ASSERT_LT(6 + signal + 4 * std::sqrt(noise), 255) << "no clipping here";
    EXPECT_NEAR(m.mean, 6 + signal, 0.05) << s[0] << "/" << s[1];
    // Rounding to whole grey levels adds 1/12.
    EXPECT_NEAR(m.variance, noise + 1.0 / 12, 0.03 * (noise + 1.0 / 12)) << s[0] << "/" << s[1];
  }
}

TEST_F(SensorTest, TheFixedPatternAddsItsVarianceAndStaysPut) {
  EvenLight(100, R"(, "prnu": 0.02)");
  const Moments with = Measure(Picture(1900, 32));
  EvenLight(100);
  const Moments without = Measure(Picture(1900, 32));
  // 2 % of a signal of 100 grey levels: a standard deviation of 2.
  EXPECT_NEAR(with.variance - without.variance, 4.0, 0.3);
  // Fixed: the same pixels stand out whatever the frame's noise.
  EvenLight(100, R"(, "prnu": 0.05, "read_noise": 0)");
  const std::vector<uint8_t> a = Picture(1900, 32, 0), b = Picture(1900, 32, 2);
  double sa = 0, sb = 0, sab = 0, saa = 0, sbb = 0;
  for (std::size_t i = 0; i < kPixels; ++i) {
    sa += a[i];
    sb += b[i];
    sab += static_cast<double>(a[i]) * b[i];
    saa += static_cast<double>(a[i]) * a[i];
    sbb += static_cast<double>(b[i]) * b[i];
  }
  const double n = kPixels;
  const double correlation = (sab / n - sa / n * sb / n) /
                             std::sqrt((saa / n - sa * sa / n / n) * (sbb / n - sb * sb / n / n));
  EXPECT_GT(correlation, 0.5);  // 5 % of 100 = 5, against shot noise 2.4: about 0.8
}

TEST_F(SensorTest, ValuesClipAt0And255) {
  EvenLight(250);
  const std::vector<uint8_t> bright = Picture(1900, 48);  // 750 grey levels
  for (uint8_t p : bright) ASSERT_EQ(p, 255);
  // A full well of 1000 electrons holds 1000 / 35 = 28.6 grey levels at 1x.
  EvenLight(250, R"(, "full_well": 1000, "read_noise": 0)");
  EXPECT_LT(Measure(Picture(1900, 16)).mean, 6 + 28.6 + 1);
  // Read noise far above the black level: no value wraps below 0.
  EvenLight(0, R"(, "read_noise": 2000)");
  const std::vector<uint8_t> dark = Picture(1900, 16);
  int zeros = 0, high = 0;
  for (uint8_t p : dark) {
    zeros += p == 0;
    high += p > 64;
  }
  EXPECT_GT(zeros, static_cast<int>(kPixels / 3));  // about half below 0, all shown as 0
  EXPECT_GT(high, static_cast<int>(kPixels / 10));
}

TEST_F(SensorTest, APictureIsFixedByItsSettingsAndSeed) {
  APPLY_SIM(R"({"preset": "robot", "distance": 20})");
  const std::vector<uint8_t> first = Picture(1900, 4, 1);
  EXPECT_EQ(first, Picture(1900, 4, 1));
  sim::Reset();
  APPLY_SIM(R"({"preset": "robot", "distance": 20})");
  EXPECT_EQ(first, Picture(1900, 4, 1));
  EXPECT_NE(first, Picture(1900, 4, 8));   // the other laser
  EXPECT_NE(first, Picture(1900, 32, 1));  // another setting
  APPLY_SIM(R"({"scene": {"background": {"seed": 2}}})");
  EXPECT_NE(first, Picture(1900, 4, 1));  // another seed
}

TEST_F(SensorTest, TheCameraShowsThePictureAtTheExposureTheNodeSet) {
  APPLY_SIM(R"({"preset": "robot", "distance": 10})");
  sunxi_cam::SunxiCam camera;
  ASSERT_TRUE(camera.OpenCamera(1, sunxi_cam::kPixelFormatNV21, 100, 640, 480));
  // Before any setting: the reference one.
  EXPECT_EQ(std::memcmp(sim::Luminance(1), Picture(1900, 32, 1).data(), kPixels), 0);
  ASSERT_TRUE(camera.setExposureGain(600, 4));
  EXPECT_EQ(std::memcmp(sim::Luminance(1), Picture(600, 4, 1).data(), kPixels), 0);
  ASSERT_TRUE(camera.setExposureGain(1900, 48));
  EXPECT_EQ(std::memcmp(sim::Luminance(8), Picture(1900, 48, 8).data(), kPixels), 0);
  camera.CloseCamera();
}

}  // namespace
