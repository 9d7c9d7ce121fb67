// The physical renderer: the light of the scene through the lens, then the
// sensor. Internal to the simulator.
//
// Light is counted in grey levels at the reference exposure and gain (the
// picture a sensor at that setting would show, without its noise). The
// light of a frame is the room's ambient light on every surface, the laser
// stripes (stripe_light.h) times their speckle, or the chessboard
// (board_light.h) while it is on, all times the lens's vignetting.
//
// The sensor turns it into pixels: with exposure e (microseconds) and gain
// g (steps of 1/gain_unit, at least 1x: G = max(g, gain_unit) / gain_unit),
// a pixel collects
//
//   electrons = light (e / reference_exposure) (conversion / G_ref) (1 + prnu n1)
//
// (at most full_well), and shows
//
//   level + (electrons + sqrt(electrons + read_noise^2) n2) G / conversion
//
// rounded and clipped to 0..255, where n1 (fixed per pixel and seed: the
// pixel response non-uniformity) and n2 (photon shot noise and read noise
// together, fixed per pixel, seed, lasers lit, distance, exposure and gain)
// are standard normal values of the simulator's own generator. So a picture
// is the same, bit for bit, for the same settings on every target.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_PHYSICAL_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_PHYSICAL_H_

#include <cstdint>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace sunxi_cam::sim {

struct LightOptions {
  bool speckle = true;  // false: the stripes' light without speckle
  bool ambient = true;  // false: no ambient light
};

// The light of a frame whose laser field has the low bits `lasers`, in
// grey levels at the reference exposure and gain (kWidth x kHeight).
std::vector<double> RenderLight(const Scene& scene, unsigned lasers,
                                const LightOptions& options = LightOptions());
// The same into `light`, resized to kWidth x kHeight.
void RenderLightInto(const Scene& scene, unsigned lasers, const LightOptions& options,
                     std::vector<double>* light);

// The luminance plane of a frame at the sensor's setting: exposure and gain
// as the node set them (0 and 0: none set yet, the reference setting).
void RenderPhysical(const Scene& scene, unsigned lasers, int exposure, int gain, uint8_t* out);

// The sensor's gain factor (1x, 2x, ...) for a gain setting.
double GainFactor(const Sensor& sensor, int gain);

// The multiplicative speckle field of one laser (0 left, 1 right): mean 1,
// standard deviation `light.speckle`, log-normal, correlated over
// `light.speckle_grain` pixels; fixed per seed.
const std::vector<double>& SpeckleField(const LaserLight& light, uint64_t seed, int side);

// A standard normal value, fixed for (stream, index): the sum of four
// uniform values, rescaled (mean 0, standard deviation 1).
double StandardNormal(uint64_t stream, uint64_t index);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_PHYSICAL_H_
