#include "tests/support/stripe_exposure.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/sunxi_cam/physical.h"

namespace testsupport {

namespace sim = sunxi_cam::sim;

StripeExposure MeasureStripe(const sim::Scene& scene, unsigned lasers, int exposure, int gain) {
  sim::LightOptions clean;
  clean.speckle = false;
  clean.ambient = false;
  const std::vector<double> light = sim::RenderLight(scene, lasers, clean);
  std::vector<uint8_t> picture(static_cast<std::size_t>(sim::kWidth) * sim::kHeight);
  sim::RenderPhysical(scene, lasers, exposure, gain, picture.data());

  StripeExposure out;
  std::vector<uint8_t> sorted(picture);
  std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
  out.background = sorted[sorted.size() / 2];
  std::vector<double> contrasts;
  for (int v = 0; v < sim::kHeight; ++v) {
    const double* row = light.data() + static_cast<std::size_t>(v) * sim::kWidth;
    const int centre = static_cast<int>(std::max_element(row, row + sim::kWidth) - row);
    // The centre line lies in the row where its light is a clear maximum.
    if (!(row[centre] > 0.5) || centre == 0 || centre == sim::kWidth - 1) continue;
    int peak = 0;
    for (int u = std::max(centre - 3, 0); u <= std::min(centre + 3, sim::kWidth - 1); ++u) {
      peak = std::max<int>(peak, picture[static_cast<std::size_t>(v) * sim::kWidth + u]);
    }
    ++out.rows;
    if (peak == 255) ++out.saturated;
    contrasts.push_back(peak - out.background);
  }
  if (!contrasts.empty()) {
    std::nth_element(contrasts.begin(), contrasts.begin() + contrasts.size() / 2, contrasts.end());
    out.median_contrast = contrasts[contrasts.size() / 2];
  }
  return out;
}

}  // namespace testsupport
