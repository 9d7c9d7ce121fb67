// The whole numbers the reference calculation nodes send.
#include "tools/calc/answer_values.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(AnswerValuesTest, PlanesInThousandthsOfADegreeAndHundredthsOfAMillimetre) {
  calc::LaserPlaneValues left, right;
  left.angles = {-2.0, 0.0, 2.198659};  // offset 21.98659 mm
  left.rms = 0.00042;                   // 4.2 micrometres
  right.angles = {2.0004, -1.5, -2.198659};
  right.rms = 0.0000049;
  uint16_t v[9] = {};
  ASSERT_TRUE(calc::EncodePlanes(left, right, 8123, v));
  EXPECT_EQ(v[0], 32768 - 2000);
  EXPECT_EQ(v[1], 32768);
  EXPECT_EQ(v[2], 32768 + 2199);
  EXPECT_EQ(v[3], 32768 + 2000);
  EXPECT_EQ(v[4], 32768 - 1500);
  EXPECT_EQ(v[5], 32768 - 2199);
  EXPECT_EQ(v[6], 4);
  EXPECT_EQ(v[7], 0);
  EXPECT_EQ(v[8], 8123);

  calc::PlaneAngles l, r;
  calc::DecodePlanes(v, &l, &r);
  EXPECT_DOUBLE_EQ(l.yaw, -2.0);
  EXPECT_DOUBLE_EQ(l.offset, 2.199);
  EXPECT_DOUBLE_EQ(r.yaw, 2.0);
  EXPECT_DOUBLE_EQ(r.roll, -1.5);
  EXPECT_DOUBLE_EQ(r.offset, -2.199);
}

TEST(AnswerValuesTest, APlaneOutsideTheRangeIsNotSent) {
  calc::LaserPlaneValues fine, steep, far;
  steep.angles = {32.8, 0, 0};
  far.angles = {0, 0, -32.77};  // -327.7 mm
  uint16_t v[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  EXPECT_FALSE(calc::EncodePlanes(steep, fine, 0, v));
  EXPECT_FALSE(calc::EncodePlanes(fine, far, 0, v));
  EXPECT_EQ(v[0], 1);  // untouched
  calc::LaserPlaneValues edge;
  edge.angles = {32.767, -32.768, 32.767};
  ASSERT_TRUE(calc::EncodePlanes(edge, fine, 0, v));
  EXPECT_EQ(v[0], 65535);
  EXPECT_EQ(v[1], 0);
  EXPECT_EQ(v[2], 65535);
}

TEST(AnswerValuesTest, QualityFiguresAndCountsStopAtTheFieldsLargestValue) {
  calc::LaserPlaneValues bad;
  bad.rms = 10;  // 100 mm
  uint16_t v[9] = {};
  ASSERT_TRUE(calc::EncodePlanes(bad, bad, 70000, v));
  EXPECT_EQ(v[6], 65535);
  EXPECT_EQ(v[8], 65535);
  uint16_t c[4] = {};
  calc::EncodeCheck(0.0234, 0.1566, 70.0, -1.0, c);
  EXPECT_EQ(c[0], 23);
  EXPECT_EQ(c[1], 157);
  EXPECT_EQ(c[2], 65535);
  EXPECT_EQ(c[3], 0);
}

TEST(AnswerValuesTest, HalvesRoundAwayFromZero) {
  EXPECT_EQ(calc::RoundedWithin(2.5, -10, 10), 3);
  EXPECT_EQ(calc::RoundedWithin(-2.5, -10, 10), -3);
  EXPECT_EQ(calc::RoundedWithin(2.4999, -10, 10), 2);
  EXPECT_EQ(calc::RoundedWithin(99, -10, 10), 10);
  EXPECT_EQ(calc::RoundedWithin(std::nan(""), -10, 10), -10);
}

TEST(AnswerValuesTest, DistancesInTenthsOfAMillimetre) {
  calc::WallValues left, right;
  left.distance = 30.0012;
  left.spread = 0.0021;
  left.tilt = -0.0003;
  left.points = 228;
  left.nearest_floor = 6.41;
  left.floor_rms = 0.0004;
  right = left;
  right.distance = 29.9992;
  right.points = 40000;
  uint16_t distance = 0;
  int16_t near[4] = {}, far[8] = {};
  calc::EncodeDistance(left, right, &distance, near, far);
  EXPECT_EQ(distance, 3000);
  EXPECT_EQ(near[0], 641);
  EXPECT_EQ(near[1], 4);
  EXPECT_EQ(far[0], 3000);
  EXPECT_EQ(far[1], 21);
  EXPECT_EQ(far[2], -3);
  EXPECT_EQ(far[3], 228);
  EXPECT_EQ(far[4], 3000);
  EXPECT_EQ(far[7], 32767);
}

}  // namespace
