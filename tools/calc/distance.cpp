#include "tools/calc/distance.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace calc {

WallMeasure MeasureWall(const CameraGeometry& geometry, const Plane& plane,
                        const StripePicture& picture, const DistanceOptions& options) {
  WallMeasure out;
  const GrayPicture& g = picture.picture;
  const StripeScan scan = FindStripeCentres(g.pixels, g.width, g.height, g.stride, options.stripe);
  const int rows = static_cast<int>(scan.centres.size());
  if (rows < options.min_stripe_rows) {
    out.code = kNoStripe;
    out.reason = picture.name + ": no stripe (" + std::to_string(rows) +
                 " rows with a stripe centre, " + std::to_string(options.min_stripe_rows) +
                 " needed)";
    return out;
  }
  std::vector<Vec3> points, wall;
  // The centres as an ideal pinhole shows them: the lens's distortion undone.
  std::vector<Pixel> pixels;
  pixels.reserve(scan.centres.size());
  for (const StripeCentre& c : scan.centres) pixels.push_back({c.u, static_cast<double>(c.v)});
  for (const Pixel& pixel : geometry.Undistorted(pixels)) {
    Vec3 p;
    if (!Triangulate(geometry, plane, pixel, &p)) continue;
    points.push_back(p);
    if (p.z >= options.wall_from) wall.push_back(p);
  }

  std::vector<double> xs;
  for (const Vec3& p : wall) xs.push_back(p.x);
  double median = 0;
  if (!xs.empty()) {
    std::nth_element(xs.begin(), xs.begin() + static_cast<std::ptrdiff_t>(xs.size() / 2), xs.end());
    median = xs[xs.size() / 2];
  }
  // Mean distance, and the straight line x = a + tilt z through the kept points.
  double n = 0, sx = 0, sz = 0, szz = 0, sxz = 0;
  for (const Vec3& p : wall) {
    if (std::fabs(p.x - median) > options.wall_band) continue;
    n += 1;
    sx += p.x;
    sz += p.z;
    szz += p.z * p.z;
    sxz += p.x * p.z;
  }
  out.wall_points = static_cast<int>(n);
  if (out.wall_points < options.min_wall_points) {
    out.code = kNoWall;
    out.reason = picture.name + ": too few stripe points on a wall (" +
                 std::to_string(out.wall_points) + ", " + std::to_string(options.min_wall_points) +
                 " needed)";
    return out;
  }
  out.distance = sx / n;
  const double mz = sz / n;
  const double varz = szz / n - mz * mz;
  out.tilt = varz > 0 ? (sxz / n - out.distance * mz) / varz : 0;
  double squares = 0;
  for (const Vec3& p : wall) {
    if (std::fabs(p.x - median) > options.wall_band) continue;
    squares += (p.x - out.distance) * (p.x - out.distance);
  }
  out.spread = std::sqrt(squares / n);

  // The floor: low points short of the wall's foot.
  double floor_squares = 0;
  for (const Vec3& p : points) {
    if (std::fabs(p.z) > options.floor_band || p.x > out.distance - options.wall_from) continue;
    ++out.floor_points;
    floor_squares += p.z * p.z;
    if (out.floor_points == 1 || p.x < out.nearest_floor) out.nearest_floor = p.x;
  }
  if (out.floor_points > 0) out.floor_rms = std::sqrt(floor_squares / out.floor_points);
  return out;
}

}  // namespace calc
