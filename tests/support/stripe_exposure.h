// How well a simulated stripe is exposed: for each picture row the laser's
// stripe crosses, its brightest pixel and how far that stands above the
// picture's background, at a sensor setting. Shared by the exposure table
// test and the table program in bench/.
//
// The stripe's rows are found from its noise-free light (the rows where its
// centre line lies in the picture); the pixels measured are the rendered
// picture's, noise, speckle and clipping included. A row's peak is its
// brightest pixel within 3 columns of the centre line, and the background
// is the median of the whole picture.
#ifndef LASERCALI_TESTS_SUPPORT_STRIPE_EXPOSURE_H_
#define LASERCALI_TESTS_SUPPORT_STRIPE_EXPOSURE_H_

#include <vector>

#include "platform/sunxi_cam/camera_sim.h"

namespace testsupport {

struct StripeExposure {
  int rows = 0;                // rows the stripe crosses
  int saturated = 0;           // rows whose peak is 255
  double background = 0;       // the picture's median
  double median_contrast = 0;  // median over the rows of peak - background
  double saturated_share() const { return rows > 0 ? static_cast<double>(saturated) / rows : 0; }
};

// The stripe of laser field `lasers` (1 left, 8 right) of `scene` at
// exposure and gain.
StripeExposure MeasureStripe(const sunxi_cam::sim::Scene& scene, unsigned lasers, int exposure,
                             int gain);

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_STRIPE_EXPOSURE_H_
