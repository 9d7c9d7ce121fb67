// The camera simulator's scene: where the laser stripes fall in the picture
// and how the picture is drawn. Internal to the simulator.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_SCENE_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_SCENE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace sunxi_cam::sim {

struct Point2 {
  double u, v;  // column, row (pixel centres at whole numbers)
};
struct Segment2 {
  Point2 a, b;
};

// The stripe a laser draws, as picture segments: the part on the floor
// first (from near to far), then the part on the wall (from bottom to top).
// Parts behind the camera are cut off; parts outside the picture are kept.
std::vector<Segment2> StripeSegments(const Scene& scene, const LaserModel& laser);

// Checks every member; on a bad one throws std::invalid_argument naming it
// ("camera sim: scene.camera.fx must be greater than 0").
void ValidateScene(const Scene& scene);

// True when the two scenes hold the same value in every member, bit for bit
// for numbers (so 0 and -0 differ): they draw the same pictures.
bool SameScene(const Scene& a, const Scene& b);

// Draws the luminance plane (kWidth x kHeight bytes) for a frame whose laser
// field has the low bits `lasers` (bit 0 left, bit 3 right), with brightness
// factor `scale`.
void RenderLuminance(const Scene& scene, unsigned lasers, double scale, uint8_t* out);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_SCENE_H_
