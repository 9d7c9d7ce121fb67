#include "platform/sunxi_cam/physical.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/sunxi_cam/board_light.h"
#include "platform/sunxi_cam/fixed_math.h"
#include "platform/sunxi_cam/lens.h"
#include "platform/sunxi_cam/stripe_light.h"

namespace sunxi_cam::sim {
namespace {

constexpr std::size_t kPixels = static_cast<std::size_t>(kWidth) * kHeight;
constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ull;

uint64_t SplitMix(uint64_t x) {
  x += kGolden;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// A stream of the generator for one purpose of one seed.
uint64_t Stream(uint64_t seed, uint64_t purpose) { return SplitMix(SplitMix(seed) ^ purpose); }

uint64_t Bits(double x) {
  uint64_t bits = 0;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}

// Relative brightness at pixel (u, v): (1 + a rho^2)^-2, rho the distance
// from the principal point over the distance to the farthest corner, a such
// that the farthest corner has `corner`.
struct Vignetting {
  double cx, cy, inv_rho2, a;
  Vignetting(const CameraModel& c, double corner) : cx(c.cx), cy(c.cy) {
    double rho2 = 0;
    for (double u : {0.0, kWidth - 1.0}) {
      for (double v : {0.0, kHeight - 1.0}) {
        rho2 = std::max(rho2, (u - cx) * (u - cx) + (v - cy) * (v - cy));
      }
    }
    inv_rho2 = rho2 > 0 ? 1.0 / rho2 : 0.0;
    a = 1.0 / std::sqrt(corner) - 1.0;
  }
  double At(int u, int v) const {
    const double du = u - cx, dv = v - cy;
    const double k = 1.0 + a * (du * du + dv * dv) * inv_rho2;
    return 1.0 / (k * k);
  }
};

struct SpeckleCache {
  bool valid = false;
  double contrast = 0, grain = 0;
  uint64_t seed = 0;
  std::vector<double> field;
};

void MakeSpeckle(const LaserLight& light, uint64_t seed, int side, std::vector<double>* field) {
  const int radius = static_cast<int>(std::ceil(3.0 * light.speckle_grain));
  std::vector<double> kernel(static_cast<std::size_t>(2 * radius + 1), 1.0);
  if (radius > 0) {
    double sum2 = 0;
    for (int i = -radius; i <= radius; ++i) {
      const double q = i / light.speckle_grain;
      kernel[static_cast<std::size_t>(i + radius)] = fixed::Exp(-0.5 * q * q);
    }
    for (double k : kernel) sum2 += k * k;
    const double norm = std::sqrt(sum2);
    for (double& k : kernel) k /= norm;
  }
  // White noise over the picture and a border of `radius`, blurred along
  // rows and then along columns: a correlated field of variance 1.
  const int w = kWidth + 2 * radius, h = kHeight + 2 * radius;
  const uint64_t stream = Stream(seed, 0x53504543ull + static_cast<uint64_t>(side));
  // Working memory kept from call to call: fresh pages cost more than the
  // work done in them.
  static std::vector<double> white, rows;
  white.resize(static_cast<std::size_t>(w) * h);
  for (std::size_t i = 0; i < white.size(); ++i) white[i] = StandardNormal(stream, i);
  rows.resize(static_cast<std::size_t>(kWidth) * h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      double sum = 0;
      for (int i = 0; i <= 2 * radius; ++i) {
        sum += kernel[static_cast<std::size_t>(i)] * white[static_cast<std::size_t>(y) * w + x + i];
      }
      rows[static_cast<std::size_t>(y) * kWidth + x] = sum;
    }
  }
  // Log-normal with mean 1 and standard deviation `speckle`.
  const double s2 = fixed::Log(1.0 + light.speckle * light.speckle);
  const double s = std::sqrt(s2);
  field->resize(kPixels);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      double g = 0;
      for (int i = 0; i <= 2 * radius; ++i) {
        g += kernel[static_cast<std::size_t>(i)] *
             rows[static_cast<std::size_t>(y + i) * kWidth + x];
      }
      (*field)[static_cast<std::size_t>(y) * kWidth + x] = fixed::Exp(s * g - 0.5 * s2);
    }
  }
}

}  // namespace

double StandardNormal(uint64_t stream, uint64_t index) {
  const uint64_t bits = SplitMix(stream + index * kGolden);
  // Four 16-bit values summed exactly, centred, scaled to variance 1: each
  // is uniform on 0..65535 with variance (65536^2 - 1) / 12.
  const int64_t sum = static_cast<int64_t>((bits & 0xFFFF) + ((bits >> 16) & 0xFFFF) +
                                           ((bits >> 32) & 0xFFFF) + (bits >> 48));
  constexpr double kScale = 1.7320508075688772 / 65535.9999923706;  // sqrt(12 / 4) / sd
  return static_cast<double>(2 * sum - 4 * 65535) * (0.5 * kScale);
}

double GainFactor(const Sensor& sensor, int gain) {
  return static_cast<double>(std::max(gain, sensor.gain_unit)) / sensor.gain_unit;
}

const std::vector<double>& SpeckleField(const LaserLight& light, uint64_t seed, int side) {
  static SpeckleCache cache[2];
  SpeckleCache& c = cache[side & 1];
  if (!c.valid || Bits(c.contrast) != Bits(light.speckle) ||
      Bits(c.grain) != Bits(light.speckle_grain) || c.seed != seed) {
    c.valid = false;
    MakeSpeckle(light, seed, side & 1, &c.field);
    c.contrast = light.speckle;
    c.grain = light.speckle_grain;
    c.seed = seed;
    c.valid = true;
  }
  return c.field;
}

std::vector<double> RenderLight(const Scene& scene, unsigned lasers, const LightOptions& options) {
  std::vector<double> light;
  RenderLightInto(scene, lasers, options, &light);
  return light;
}

void RenderLightInto(const Scene& scene, unsigned lasers, const LightOptions& options,
                     std::vector<double>* out) {
  std::vector<double>& light = *out;
  light.resize(kPixels);
  std::fill(light.begin(), light.end(), 0.0);
  const Lens lens(scene.camera);
  const LaserModel* sides[2] = {(lasers & 1u) ? &scene.left : nullptr,
                                (lasers & 8u) ? &scene.right : nullptr};
  if (scene.board.on) {
    AddBoardLight(scene, lens, true, light.data());
  }
  for (int side = 0; side < 2 && !scene.board.on; ++side) {
    if (sides[side] == nullptr) continue;
    const double* speckle = nullptr;
    if (options.speckle && scene.light.speckle > 0) {
      speckle = SpeckleField(scene.light, scene.background.seed, side).data();
    }
    AddStripeLight(scene, lens, *sides[side], speckle, light.data());
  }
  const double ambient = options.ambient ? scene.background.ambient : 0.0;
  const Vignetting vignetting(scene.camera, scene.optics.vignetting);
  for (int v = 0; v < kHeight; ++v) {
    for (int u = 0; u < kWidth; ++u) {
      double& l = light[static_cast<std::size_t>(v) * kWidth + u];
      l = (l + ambient) * vignetting.At(u, v);
    }
  }
}

void RenderPhysical(const Scene& scene, unsigned lasers, int exposure, int gain, uint8_t* out) {
  static std::vector<double> light;  // kept: fresh pages cost more than drawing in them
  RenderLightInto(scene, lasers, LightOptions(), &light);
  if (exposure <= 0 || gain <= 0) {
    exposure = scene.reference_exposure;
    gain = scene.reference_gain;
  }
  const Sensor& sensor = scene.sensor;
  const double g = GainFactor(sensor, gain);
  const double g_ref = GainFactor(sensor, scene.reference_gain);
  const double electrons_per_level =
      sensor.conversion / g_ref * (static_cast<double>(exposure) / scene.reference_exposure);
  const double levels_per_electron = g / sensor.conversion;
  const double read2 = sensor.read_noise * sensor.read_noise;
  const uint64_t seed = scene.background.seed;
  const uint64_t prnu_stream = Stream(seed, 0x50524e55ull);
  const uint64_t setting = (static_cast<uint64_t>(lasers & 15u) << 60) ^ Bits(scene.distance) ^
                           (static_cast<uint64_t>(static_cast<uint32_t>(exposure)) << 20) ^
                           static_cast<uint64_t>(static_cast<uint32_t>(gain));
  const uint64_t noise_stream = Stream(seed ^ SplitMix(setting), 0x4e4f4953ull);
  for (std::size_t i = 0; i < kPixels; ++i) {
    double e = light[i] * electrons_per_level;
    if (sensor.prnu > 0) e *= 1.0 + sensor.prnu * StandardNormal(prnu_stream, i);
    e = std::clamp(e, 0.0, sensor.full_well);
    const double noisy = e + std::sqrt(e + read2) * StandardNormal(noise_stream, i);
    // Rounded half away from zero, as std::round, without its call.
    const double value = scene.background.level + noisy * levels_per_electron;
    out[i] = value >= 254.5 ? 255
             : value >= 0.5 ? static_cast<uint8_t>(static_cast<int>(value + 0.5))
                            : 0;  // NaN gives 0
  }
}

}  // namespace sunxi_cam::sim
