// The simulator's own elementary functions against the C library's: the
// same values to a few units in the last place (erf to its 1.5e-7).
#include "platform/sunxi_cam/fixed_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

namespace fixed = sunxi_cam::sim::fixed;

double RelativeError(double a, double b) { return std::fabs(a - b) / std::fabs(b); }

TEST(FixedMathTest, ExpAndLogMatchTheLibrary) {
  double worst_exp = 0, worst_log = 0;
  for (double x = -700; x <= 700; x += 0.0137) {
    worst_exp = std::max(worst_exp, RelativeError(fixed::Exp(x), std::exp(x)));
  }
  for (double x = 1e-300; x < 1e300; x *= 1.7) {
    worst_log = std::max(
        worst_log, std::fabs(fixed::Log(x) - std::log(x)) / std::max(1.0, std::fabs(std::log(x))));
  }
  for (double x = 0.5; x < 2; x += 0.00037) {
    worst_log = std::max(worst_log, std::fabs(fixed::Log(x) - std::log(x)));
  }
  EXPECT_LT(worst_exp, 4e-16);
  EXPECT_LT(worst_log, 4e-16);
  EXPECT_EQ(fixed::Exp(0), 1.0);
  EXPECT_EQ(fixed::Exp(-800), 0.0);
  EXPECT_EQ(fixed::Exp(800), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(fixed::Exp(NAN)));
  EXPECT_EQ(fixed::Log(1), 0.0);
  EXPECT_TRUE(std::isnan(fixed::Log(-1)));
}

TEST(FixedMathTest, SineAndCosineMatchTheLibrary) {
  double worst = 0;
  for (double x = -200; x <= 200; x += 0.00731) {
    worst = std::max(worst, std::fabs(fixed::Sin(x) - std::sin(x)));
    worst = std::max(worst, std::fabs(fixed::Cos(x) - std::cos(x)));
  }
  EXPECT_LT(worst, 4e-16);
  EXPECT_EQ(fixed::Sin(0), 0.0);
  EXPECT_EQ(fixed::Cos(0), 1.0);
  EXPECT_NEAR(fixed::Sin(fixed::Radians(30)), 0.5, 1e-16);
}

TEST(FixedMathTest, ErfIsWithinItsApproximation) {
  double worst = 0;
  for (double x = -6; x <= 6; x += 0.001)
    worst = std::max(worst, std::fabs(fixed::Erf(x) - std::erf(x)));
  EXPECT_LT(worst, 1.5e-7);
  EXPECT_NEAR(fixed::Erf(0), 0.0, 1e-8);
}

}  // namespace
