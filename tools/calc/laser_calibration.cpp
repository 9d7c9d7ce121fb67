#include "tools/calc/laser_calibration.h"

#include <cmath>
#include <cstdio>

namespace calc {
namespace {

std::string Format(const char* format, double a, double b = 0) {
  char text[160];
  std::snprintf(text, sizeof text, format, a, b);
  return text;
}

// 1 / (cm a pixel along the row moves the point on its surface)^2.
double WeightOf(const CameraGeometry& geometry, const Target& target, const TargetPoint& p) {
  const Located a = Locate(geometry, target, {p.pixel.u - 0.5, p.pixel.v});
  const Located b = Locate(geometry, target, {p.pixel.u + 0.5, p.pixel.v});
  Vec3 step;
  if (a.surface == p.surface && b.surface == p.surface) {
    step = b.point - a.point;
  } else if (b.surface == p.surface) {
    step = 2.0 * (b.point - p.point);
  } else if (a.surface == p.surface) {
    step = 2.0 * (p.point - a.point);
  } else {
    return 0;
  }
  const double moved = Dot(step, step);
  return moved > 0 ? 1.0 / moved : 0;
}

}  // namespace

LocatedStripe LocateStripe(const CameraGeometry& geometry, const StripePicture& picture,
                           const CalibrationOptions& options) {
  LocatedStripe out;
  const GrayPicture& g = picture.picture;
  StripeScan found;
  if (picture.scan == nullptr) {
    found = FindStripeCentres(g.pixels, g.width, g.height, g.stride, options.stripe);
  }
  const StripeScan& scan = picture.scan != nullptr ? *picture.scan : found;
  out.stripe_rows = static_cast<int>(scan.centres.size());
  out.two_stripes = scan.rows_two_stripes;
  // The centres as an ideal pinhole shows them: the lens's distortion undone.
  std::vector<Pixel> pixels;
  pixels.reserve(scan.centres.size());
  for (const StripeCentre& c : scan.centres) pixels.push_back({c.u, static_cast<double>(c.v)});
  pixels = geometry.Undistorted(pixels);
  for (std::size_t i = 0; i < scan.centres.size(); ++i) {
    const StripeCentre& c = scan.centres[i];
    TargetPoint p;
    p.pixel = pixels[i];
    const Located located = Locate(geometry, picture.target, p.pixel);
    if (located.surface == Surface::kNeither) {
      ++out.off_target;
      continue;
    }
    const double foot = FootRow(geometry, picture.target.distance, p.pixel.u);
    if (std::fabs(p.pixel.v - foot) <= options.foot_margin * c.half_window) {
      ++out.near_foot;
      continue;
    }
    p.surface = located.surface;
    p.point = located.point;
    p.weight = WeightOf(geometry, picture.target, p);
    if (p.weight > 0) out.points.push_back(p);
  }
  return out;
}

LaserFit CalibrateLaser(const CameraGeometry& geometry, const std::vector<StripePicture>& pictures,
                        const CalibrationOptions& options) {
  LaserFit result;
  std::vector<Vec3> points;
  std::vector<double> weights;
  for (const StripePicture& picture : pictures) {
    const LocatedStripe stripe = LocateStripe(geometry, picture, options);
    if (stripe.stripe_rows < options.min_stripe_rows) {
      result.code = kNoStripe;
      result.reason = picture.name + ": no stripe (" + std::to_string(stripe.stripe_rows) +
                      " rows with a stripe centre, " + std::to_string(options.min_stripe_rows) +
                      " needed)";
      return result;
    }
    if (stripe.off_target > options.max_off_target * stripe.stripe_rows) {
      result.code = kOffTarget;
      result.reason = picture.name + ": " + std::to_string(stripe.off_target) + " of " +
                      std::to_string(stripe.stripe_rows) +
                      " stripe centres lie on neither the floor nor the wall";
      return result;
    }
    for (const TargetPoint& p : stripe.points) {
      points.push_back(p.point);
      weights.push_back(p.weight);
      if (p.surface == Surface::kFloor) {
        ++result.floor_points;
      } else {
        ++result.wall_points;
      }
    }
  }
  result.points = static_cast<int>(points.size());
  if (result.points < options.min_points) {
    result.code = kTooFewPoints;
    result.reason = "too few stripe points on the floor and the wall (" +
                    std::to_string(result.points) + ", " + std::to_string(options.min_points) +
                    " needed)";
    return result;
  }
  const RobustPlane robust = FitPlaneRobust(points, weights);
  result.fit = robust.fit;
  result.outliers = robust.outliers;
  for (int i = 0; i < 9; ++i) result.covariance[i] = robust.covariance[i];
  result.sigma = robust.sigma;
  if (!result.fit.ok) {
    result.code = kTooFewPoints;
    result.reason = "no plane through the points";
    return result;
  }
  if (result.fit.spread < options.min_spread) {
    result.code = kNoPlaneSpanned;
    result.reason = Format(
        "the points lie along one line (%.3f cm across it, %.1f cm needed): they fix no plane",
        result.fit.spread, options.min_spread);
    return result;
  }
  // The RMS distance of all the points, unweighted, in cm: pictures that do
  // not show the target where their names say (filed under the wrong
  // distance) are refused, not left out as outliers.
  double squares = 0;
  for (const Vec3& p : points) {
    const double d = Dot(result.fit.plane.normal, p) - result.fit.plane.offset;
    squares += d * d;
  }
  const double rms = std::sqrt(squares / static_cast<double>(points.size()));
  if (rms > options.max_rms) {
    result.code = kNotOnePlane;
    result.reason = Format(
        "the points do not lie on one plane: %.2f mm from it on average, at most %.2f mm allowed",
        rms * 10, options.max_rms * 10);
    return result;
  }
  return result;
}

LaserFit CalibrateLaserThrough(const CameraModel& camera,
                               const std::vector<StripePicture>& pictures,
                               const CalibrationOptions& options) {
  // The stripes' centres once, for the fit and every refit.
  std::vector<StripeScan> scans;
  scans.reserve(pictures.size());
  std::vector<StripePicture> scanned = pictures;
  for (StripePicture& picture : scanned) {
    if (picture.scan != nullptr) continue;
    const GrayPicture& g = picture.picture;
    scans.push_back(FindStripeCentres(g.pixels, g.width, g.height, g.stride, options.stripe));
    picture.scan = &scans.back();
  }
  LaserFit result = CalibrateLaser(CameraGeometry(camera), scanned, options);
  if (result.code != kSuccess) return result;
  const auto refit = [&](const CameraModel& moved, PlaneAngles* angles) {
    const LaserFit fit = CalibrateLaser(CameraGeometry(moved), scanned, options);
    if (fit.code != kSuccess) return false;
    *angles = AnglesOf(fit.fit.plane);
    return true;
  };
  if (CameraCovariance(camera, refit, result.camera_covariance)) {
    result.sigma = Combine(result.covariance, result.camera_covariance);
  }
  return result;
}

bool SidesSwapped(const Plane& left, const Plane& right) {
  return left.offset / left.normal.y < right.offset / right.normal.y;
}

Residuals CheckPlane(const CameraGeometry& geometry, const Plane& plane,
                     const std::vector<StripePicture>& pictures,
                     const CalibrationOptions& options) {
  Residuals out;
  double squares = 0;
  for (const StripePicture& picture : pictures) {
    double sums[2] = {0, 0};  // signed residuals of the floor part, the wall part
    int counts[2] = {0, 0};
    const LocatedStripe stripe = LocateStripe(geometry, picture, options);
    if (stripe.stripe_rows < options.min_stripe_rows) {
      out.code = kNoStripe;
      out.reason = picture.name + ": no stripe (" + std::to_string(stripe.stripe_rows) +
                   " rows with a stripe centre, " + std::to_string(options.min_stripe_rows) +
                   " needed)";
      return out;
    }
    for (const TargetPoint& p : stripe.points) {
      double u = 0;
      if (!ColumnAt(geometry, plane, p.surface, picture.target, p.pixel.v, &u)) continue;
      const double signed_r = p.pixel.u - u;
      const double r = std::fabs(signed_r);
      squares += r * r;
      out.worst = std::fmax(out.worst, r);
      ++out.points;
      const int part = p.surface == Surface::kFloor ? 0 : 1;
      sums[part] += signed_r;
      ++counts[part];
    }
    for (int part = 0; part < 2; ++part) {
      if (counts[part] < kBiasMinPoints) continue;
      const double bias = std::fabs(sums[part] / counts[part]);
      if (bias > out.bias) {
        out.bias = bias;
        out.bias_picture = picture.name + (part == 0 ? " (floor)" : " (wall)");
      }
    }
  }
  if (out.points < options.min_points) {
    out.code = kTooFewPoints;
    out.reason = "too few stripe points to measure (" + std::to_string(out.points) + ", " +
                 std::to_string(options.min_points) + " needed)";
    return out;
  }
  out.rms = std::sqrt(squares / out.points);
  return out;
}

}  // namespace calc
