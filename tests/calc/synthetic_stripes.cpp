#include "tests/calc/synthetic_stripes.h"

#include <algorithm>
#include <cmath>

namespace calctest {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kSamples = 16;  // per pixel, across it

uint64_t SplitMix(uint64_t* state) {
  uint64_t x = (*state += 0x9E3779B97F4A7C15ull);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

// A standard normal number (Box-Muller).
double Normal(uint64_t* state) {
  const double a = (static_cast<double>(SplitMix(state) >> 11) + 0.5) / 9007199254740992.0;
  const double b = static_cast<double>(SplitMix(state) >> 11) / 9007199254740992.0;
  return std::sqrt(-2 * std::log(a)) * std::cos(2 * kPi * b);
}

double Profile(const StripeKind& kind, double d) {
  const double beyond = std::fabs(d) - kind.core / 2;
  if (beyond <= 0) return kind.peak;
  return kind.peak * std::exp(-beyond * beyond / (2 * kind.edge * kind.edge));
}

}  // namespace

std::vector<StripeKind> StripeKinds() {
  std::vector<StripeKind> kinds(8);
  kinds[0].name = "gaussian";
  kinds[1].name = "flat_top";
  kinds[1].core = 4;
  kinds[1].edge = 1.2;
  kinds[1].peak = 200;
  kinds[2].name = "wide_blurred";
  kinds[2].edge = 4;
  kinds[2].peak = 100;
  kinds[3].name = "clipped";
  kinds[3].edge = 2;
  kinds[3].peak = 500;
  kinds[4].name = "clipped_flat_top";
  kinds[4].core = 3;
  kinds[4].edge = 1.5;
  kinds[4].peak = 400;
  kinds[5].name = "speckled";
  kinds[5].core = 3;
  kinds[5].peak = 160;
  kinds[5].speckle = 0.3;
  kinds[6].name = "sloped_background";
  kinds[6].edge = 2;
  kinds[6].peak = 120;
  kinds[6].background = 60;
  kinds[6].slope = 0.15;
  kinds[7].name = "robot";
  kinds[7].core = 2;
  kinds[7].edge = 1.6;
  kinds[7].peak = 270;
  kinds[7].speckle = 0.2;
  kinds[7].noise = 3;
  kinds[7].background = 12;
  for (std::size_t i = 0; i < kinds.size(); ++i) kinds[i].seed = 1000 + i;
  return kinds;
}

StripePicture DrawStripe(const StripeKind& kind) {
  StripePicture p;
  const int w = StripePicture::kWidth, h = StripePicture::kHeight;
  p.pixels.resize(static_cast<std::size_t>(w) * h);
  uint64_t state = kind.seed;
  for (int v = 0; v < h; ++v) {
    const double centre = 200.25 + 0.37 * v;
    p.centres.push_back(centre);
    for (int u = 0; u < w; ++u) {
      double light = 0;
      if (std::fabs(u - centre) < kind.core / 2 + 8 * kind.edge + 1) {
        for (int s = 0; s < kSamples; ++s) {
          light += Profile(kind, u - 0.5 + (s + 0.5) / kSamples - centre) / kSamples;
        }
      }
      if (kind.speckle > 0 && light > 0) {
        light = std::max(0.0, light * (1 + kind.speckle * Normal(&state)));
      }
      const double grey =
          kind.background + kind.slope * (u - w / 2) + light + kind.noise * Normal(&state);
      p.pixels[static_cast<std::size_t>(v) * w + u] =
          static_cast<uint8_t>(std::clamp(std::floor(grey + 0.5), 0.0, 255.0));
    }
  }
  return p;
}

}  // namespace calctest
