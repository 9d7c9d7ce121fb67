// The light a laser's stripe throws into the picture, for the physical
// renderer. Internal to the simulator.
//
// Each pixel looks along its ray (the lens model, lens.h) at the floor or
// the wall. At the point P it sees, the laser's sheet of light has the
// brightness of a Gaussian across the plane: s = n . P - offset is P's
// distance from the plane, and the sheet's standard deviation there is
// sigma_L(r) = sqrt((width / 4)^2 + (divergence r / 4)^2) at the range r
// from the emitter. In the picture, s changes by |grad s| per pixel (worked
// out exactly through the lens), so the pixel lies d = s / |grad s| pixels
// from the stripe's centre line, and the sheet is sigma_L / |grad s| pixels
// wide. The lens blurs it with the circle of confusion of a thin lens at
// the point's depth Z (focal length f, f-number N, focus distance Zf):
//
//   c = (f / N) f |Z - Zf| / (Z (Zf - f)),  sigma_blur = c / 4
//
// (a Gaussian with the second moment of the uniform disc), and the pixel
// averages over its own square (variance 1/12). The Gaussians add:
// sigma^2 = sigma_sheet^2 + sigma_blur^2 + 1/12, and the light at the pixel
// is
//
//   peak (sigma_sheet / sigma) exp(-d^2 / (2 sigma^2)),
//   peak = power (10 / r) (sigma_L(10) / sigma_L(r)) |cos incidence|
//
// where the line's power spreads along its length (1 / r) and across the
// sheet's thickness, and a surface turned away from the beam catches less
// of it. The centre of the stripe, d = 0, is exactly where the plane meets
// the surface, seen through the lens: the profile across it is symmetric,
// so the centre of the noise-free profile is the projection of the plane's
// points (to second order in the profile's width).
//
// Pixels are only worked out within reach of the stripe: the lines where
// the plane meets the floor and the wall are projected through the lens,
// and each row gets the columns within five standard deviations of them.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_STRIPE_LIGHT_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_STRIPE_LIGHT_H_

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/lens.h"

namespace sunxi_cam::sim {

// Nothing nearer the camera's plane than this (cm) is drawn.
inline constexpr double kNearestDrawn = 0.5;

// What a pixel's ray meets.
struct SurfacePoint {
  bool hit = false;
  bool wall = false;      // else the floor
  Vec3 p{};               // in the robot's frame
  double depth = 0;       // along the camera's axis
  Vec3 dp_du{}, dp_dv{};  // how p moves with the pixel
};

// The floor or wall point seen along normalised direction (x, y), with its
// derivatives by pixel; `inverse` is d(x, y) / d(u, v).
SurfacePoint SeenAt(const Scene& scene, const Lens& lens, double x, double y,
                    const Jacobian2& inverse);

// The inverse of a 2 x 2 Jacobian (the determinant must not be 0).
Jacobian2 Inverse(const Jacobian2& j);

// One pixel's view of a stripe: its distance from the centre line and the
// profile's width there (pixels), and the light at the pixel (grey levels
// at the reference exposure and gain, before vignetting and speckle).
struct StripeSample {
  bool lit = false;
  double distance = 0;  // signed, pixels
  double sigma = 0;     // of the blurred profile, pixels
  double sheet = 0;     // the sheet's own sigma, pixels
  double light = 0;
};
// A laser's sheet of light, worked out once for a frame.
struct LaserSheet {
  bool on = false;
  double x = 0;  // the emitter's x: it lights what lies ahead of it
  Vec3 normal{}, emitter{};
  double offset = 0;   // the plane: normal . p = offset
  double sheet10 = 0;  // the sheet's sigma (cm) 10 cm from the emitter
};
LaserSheet SheetOf(const LaserModel& laser, const LaserLight& light);

StripeSample StripeAt(const Scene& scene, const LaserSheet& sheet, const SurfacePoint& seen);

// Standard deviation of the defocus blur, pixels, at depth `depth` cm.
double BlurSigma(const Scene& scene, double depth);

// Adds the stripe of `laser` to `light` (kWidth x kHeight, row by row),
// each pixel's share multiplied by `speckle` at that pixel when given.
// Picture faults apply as in the ideal renderer: rows gap_from..gap_to stay
// dark, and second_stripe adds a copy that many pixels to the right.
// `whole_picture` works out every pixel instead of those within reach of
// the stripe: the plain way, for the test that the reach misses no light.
void AddStripeLight(const Scene& scene, const Lens& lens, const LaserModel& laser,
                    const double* speckle, double* light, bool whole_picture = false);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_STRIPE_LIGHT_H_
