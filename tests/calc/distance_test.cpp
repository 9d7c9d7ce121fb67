// The wall's distance from one laser's stripe and plane.
#include "tools/calc/distance.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/calc/target_pictures.h"

namespace {

namespace sim = sunxi_cam::sim;

class DistanceTest : public ::testing::Test {
 protected:
  void SetUp() override { sim::Reset(); }
  void TearDown() override { sim::Reset(); }

  calc::WallMeasure Measure(int laser, const calc::Plane& plane) {
    calc::StripePicture p;
    p.name = laser == 1 ? "dis_left" : "dis_right";
    p.picture = {sim::Luminance(laser), sim::kWidth, sim::kHeight, sim::kWidth};
    const calc::CameraGeometry g(calctest::CameraOf(sim::Truth().camera));
    return calc::MeasureWall(g, plane, p);
  }
  calc::Plane TruePlane(int laser) {
    return calctest::PlaneOf(laser == 1 ? sim::Truth().left : sim::Truth().right);
  }
};

TEST_F(DistanceTest, TheTruePlanesMeasureTheWallWithinATenthOfAMillimetre) {
  for (double d : {8.0, 12.5, 20.0, 27.3, 33.0, 41.75}) {
    sim::SetDistance(d);
    for (int laser : {1, 8}) {
      SCOPED_TRACE(testing::Message() << d << " cm, laser " << laser);
      const calc::WallMeasure m = Measure(laser, TruePlane(laser));
      ASSERT_EQ(m.code, calc::kSuccess) << m.reason;
      EXPECT_NEAR(m.distance, d, 0.01);
      EXPECT_GT(m.wall_points, 150);
      EXPECT_LT(std::fabs(m.tilt), 0.005);
      EXPECT_LT(m.spread, 0.15);
      if (d > 10) {
        EXPECT_GT(m.floor_points, 50);
        EXPECT_LT(m.floor_rms, 0.01);
        EXPECT_GT(m.nearest_floor, 5);
        EXPECT_LT(m.nearest_floor, 8);
      }
    }
  }
}

TEST_F(DistanceTest, APlaneThatIsOffShowsAsATiltedWallAndARaisedFloor) {
  sim::SetDistance(25);
  calc::PlaneAngles angles = calc::AnglesOf(TruePlane(1));
  angles.roll += 0.5;
  const calc::WallMeasure m = Measure(1, calc::PlaneFromAngles(angles));
  ASSERT_EQ(m.code, calc::kSuccess) << m.reason;
  EXPECT_GT(std::fabs(m.tilt), 0.05);
  // The yaw that is off moves the wall.
  angles = calc::AnglesOf(TruePlane(1));
  angles.yaw += 0.2;
  EXPECT_GT(std::fabs(Measure(1, calc::PlaneFromAngles(angles)).distance - 25), 0.5);
}

TEST_F(DistanceTest, WithoutAWallThereIsNoDistance) {
  sim::Scene scene = sim::GetScene();
  scene.wall = false;
  sim::SetScene(scene);
  const calc::WallMeasure m = Measure(1, TruePlane(1));
  EXPECT_EQ(m.code, calc::kNoWall);
  EXPECT_EQ(m.reason.rfind("dis_left: too few stripe points on a wall (", 0), 0u) << m.reason;
  EXPECT_EQ(m.reason.substr(m.reason.size() - 12), ", 20 needed)");
}

TEST_F(DistanceTest, WithoutTheStripeThereIsNoDistance) {
  sim::Scene scene = sim::GetScene();
  scene.right.on = false;
  sim::SetScene(scene);
  const calc::WallMeasure m = Measure(8, TruePlane(8));
  EXPECT_EQ(m.code, calc::kNoStripe);
  EXPECT_EQ(m.reason, "dis_right: no stripe (0 rows with a stripe centre, 20 needed)");
}

}  // namespace
