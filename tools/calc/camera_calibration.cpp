#include "tools/calc/camera_calibration.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "tools/calc/opencv_camera.h"

namespace calc {
namespace {

std::string Figure(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

CameraCalibration Stop(CameraCalibration out, int code, const std::string& reason) {
  out.code = code;
  out.reason = reason;
  return out;
}

// The camera's pose on the robot from the robot-to-camera rotation vector
// and translation: the six figures x, y, height, yaw, pitch, roll.
cv::Vec<double, 6> PoseFigures(const cv::Vec3d& rotation, const cv::Vec3d& translation) {
  cv::Matx33d r;
  cv::Rodrigues(rotation, r);
  const cv::Vec3d centre = -(r.t() * translation);
  CameraAxes axes{
      {r(0, 0), r(0, 1), r(0, 2)}, {r(1, 0), r(1, 1), r(1, 2)}, {r(2, 0), r(2, 1), r(2, 2)}};
  CameraPose pose;
  AnglesOfAxes(axes, &pose);
  return {centre[0], centre[1], centre[2], pose.yaw, pose.pitch, pose.roll};
}

// The camera's pose from every corner of every view at its place on the
// robot; false with `reason` when the corners do not fit one pose.
bool RecoverPose(const std::vector<std::vector<Pixel>>& corners,
                 const std::vector<BoardPlacement>& placements, const BoardGeometry& board,
                 double max_rms, CameraCalibration* out) {
  std::vector<cv::Point3d> robot;
  std::vector<cv::Point2d> seen;
  for (std::size_t v = 0; v < corners.size(); ++v) {
    const std::vector<Vec3> placed = PlacedCorners(board, placements[v]);
    for (std::size_t i = 0; i < placed.size(); ++i) {
      robot.emplace_back(placed[i].x, placed[i].y, placed[i].z);
      seen.emplace_back(corners[v][i].u, corners[v][i].v);
    }
  }
  CameraModel& model = out->model;
  const cv::Matx33d k = CameraMatrix(model.intrinsics);
  const cv::Matx<double, 1, 5> d = Coefficients(model.distortion);
  cv::Vec3d rotation, translation;
  if (!cv::solvePnP(robot, seen, k, d, rotation, translation, false, cv::SOLVEPNP_ITERATIVE)) {
    out->reason = "did not converge: no camera pose shows the boards where their views do";
    return false;
  }
  cv::solvePnPRefineLM(
      robot, seen, k, d, rotation, translation,
      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, DBL_EPSILON));
  std::vector<cv::Point2d> shown;
  cv::Mat jacobian;
  cv::projectPoints(robot, rotation, translation, k, d, shown, jacobian);
  double squares = 0;
  cv::Mat residuals(static_cast<int>(2 * seen.size()), 1, CV_64F);
  for (std::size_t i = 0; i < seen.size(); ++i) {
    residuals.at<double>(int(2 * i)) = seen[i].x - shown[i].x;
    residuals.at<double>(int(2 * i + 1)) = seen[i].y - shown[i].y;
    squares += (seen[i].x - shown[i].x) * (seen[i].x - shown[i].x) +
               (seen[i].y - shown[i].y) * (seen[i].y - shown[i].y);
  }
  out->pose_rms = std::sqrt(squares / seen.size());
  if (!(out->pose_rms <= max_rms)) {
    out->reason =
        "did not converge: the boards' placements do not fit their views (the camera's "
        "pose leaves " +
        Figure(out->pose_rms, 2) + " px RMS, at most " + Figure(max_rms, 2) + ")";
    return false;
  }
  // The pose's covariance: the corners' spread about the fit through the
  // pose's Jacobian, and the lens's 1-sigma through the pose's dependence on
  // the lens (d pose / d lens = -(Jp' Jp)^-1 Jp' Jk).
  const cv::Mat jp = jacobian.colRange(0, 6), jk = jacobian.colRange(6, 15);
  cv::Mat normal_inverse;
  cv::invert(jp.t() * jp, normal_inverse, cv::DECOMP_SVD);
  const double spread = squares / double(residuals.rows - 6);
  cv::Mat covariance = spread * normal_inverse;
  if (model.lens_sigma_known) {
    const Intrinsics& si = model.intrinsics_sigma;
    const Distortion& sd = model.distortion_sigma;
    const double sigma[9] = {si.fx, si.fy, si.cx, si.cy, sd.k1, sd.k2, sd.p1, sd.p2, sd.k3};
    cv::Mat lens = cv::Mat::zeros(9, 9, CV_64F);
    for (int i = 0; i < 9; ++i) lens.at<double>(i, i) = sigma[i] * sigma[i];
    const cv::Mat carry = normal_inverse * jp.t() * jk;
    covariance += carry * lens * carry.t();
  }
  // ... and through the six figures, by central differences.
  const cv::Vec<double, 6> figures = PoseFigures(rotation, translation);
  cv::Mat f(6, 6, CV_64F);
  for (int j = 0; j < 6; ++j) {
    const double h = 1e-6;
    cv::Vec3d r1 = rotation, r2 = rotation, t1 = translation, t2 = translation;
    (j < 3 ? r1[j] : t1[j - 3]) += h;
    (j < 3 ? r2[j] : t2[j - 3]) -= h;
    const cv::Vec<double, 6> step = (PoseFigures(r1, t1) - PoseFigures(r2, t2)) * (0.5 / h);
    for (int i = 0; i < 6; ++i) f.at<double>(i, j) = step[i];
  }
  const cv::Mat pose_covariance = f * covariance * f.t();
  double sigma[6];
  for (int i = 0; i < 6; ++i)
    sigma[i] = std::sqrt(std::fmax(0.0, pose_covariance.at<double>(i, i)));
  model.pose = {figures[0], figures[1], figures[2], figures[3], figures[4], figures[5]};
  model.pose_sigma = {sigma[0], sigma[1], sigma[2], sigma[3], sigma[4], sigma[5]};
  model.pose_known = model.pose_sigma_known = true;
  return true;
}

}  // namespace

CameraCalibration CalibrateFromCorners(const std::vector<std::string>& names,
                                       const std::vector<std::vector<Pixel>>& corners, int width,
                                       int height, const BoardGeometry& board,
                                       const std::vector<BoardPlacement>& placements,
                                       const ChessboardOptions& options) {
  CameraCalibration out;
  out.model.image_width = width;
  out.model.image_height = height;
  out.model.pose_known = false;
  out.views = static_cast<int>(corners.size());
  const std::string problem = BoardProblem(board);
  if (!problem.empty()) return Stop(out, kBoardNotFound, "the board: " + problem);
  const std::size_t count = static_cast<std::size_t>(board.columns * board.rows);
  for (std::size_t v = 0; v < corners.size(); ++v) {
    if (corners[v].size() != count) {
      return Stop(out, kBoardNotFound,
                  names[v] + ": board not found (" + std::to_string(corners[v].size()) +
                      " corners, not " + std::to_string(count) + ")");
    }
  }
  if (out.views < options.min_views) {
    return Stop(out, kTooFewViews,
                "too few views: " + std::to_string(out.views) +
                    " show the board, the calibration needs at least " +
                    std::to_string(options.min_views));
  }
  if (!placements.empty() && placements.size() != corners.size()) {
    return Stop(out, kTooFewViews,
                "too few views: " + std::to_string(placements.size()) + " board placements for " +
                    std::to_string(out.views) + " views");
  }
  const Coverage coverage = CoverageOf(corners, width, height);
  out.coverage = coverage.reach;
  if (!(coverage.reach >= options.min_coverage)) {
    return Stop(out, kViewsDoNotCover,
                std::string("views do not cover the picture: the boards reach ") +
                    Figure(coverage.reach, 2) + " of the way from the centre to the " +
                    QuarterName(coverage.quarter) + " corner, at least " +
                    Figure(options.min_coverage, 2) + " is needed to measure the distortion");
  }

  std::vector<std::vector<cv::Point3f>> object(corners.size());
  std::vector<std::vector<cv::Point2f>> image(corners.size());
  const std::vector<Vec3> grid = BoardCorners(board);
  for (std::size_t v = 0; v < corners.size(); ++v) {
    for (std::size_t i = 0; i < count; ++i) {
      object[v].emplace_back(float(grid[i].x), float(grid[i].y), 0.f);
      image[v].emplace_back(float(corners[v][i].u), float(corners[v][i].v));
    }
  }
  cv::Mat k, d, std_intrinsics, std_extrinsics, per_view;
  std::vector<cv::Mat> rotations, translations;
  try {
    out.rms = cv::calibrateCamera(
        object, image, cv::Size(width, height), k, d, rotations, translations, std_intrinsics,
        std_extrinsics, per_view, options.fix_k3 ? cv::CALIB_FIX_K3 : 0,
        cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, DBL_EPSILON));
  } catch (const cv::Exception& e) {
    return Stop(out, kDidNotConverge, "did not converge: " + e.err);
  }
  k.convertTo(k, CV_64F);
  d = d.reshape(1, 1);
  d.convertTo(d, CV_64F);
  // OpenCV's standard deviations take the noise's variance as the corners'
  // squared distances over the number of corners less the parameters; the
  // squares are of two coordinates each, so the variance of one coordinate
  // is the sum over twice as many, less the parameters.
  const double points = double(corners.size() * count);
  const double parameters = 4 + (options.fix_k3 ? 4 : 5) + 6 * double(corners.size());
  const double per_coordinate = std::sqrt((points - parameters) / (2 * points - parameters));
  std_intrinsics = std_intrinsics.reshape(1, 1) * per_coordinate;
  std_extrinsics = std_extrinsics.reshape(1, 1) * per_coordinate;
  CameraModel& model = out.model;
  model.intrinsics = {k.at<double>(0, 0), k.at<double>(1, 1), k.at<double>(0, 2),
                      k.at<double>(1, 2)};
  model.distortion = {d.at<double>(0), d.at<double>(1), d.at<double>(2), d.at<double>(3),
                      d.cols > 4 ? d.at<double>(4) : 0.0};
  const auto s = [&](int i) { return std_intrinsics.at<double>(i); };
  model.intrinsics_sigma = {s(0), s(1), s(2), s(3)};
  model.distortion_sigma = {s(4), s(5), s(6), s(7), s(8)};
  model.lens_sigma_known = true;
  std::size_t worst = 0;
  for (std::size_t v = 0; v < corners.size(); ++v) {
    ViewFit fit;
    fit.name = names[v];
    for (int i = 0; i < 3; ++i) {
      fit.rotation[i] = rotations[v].at<double>(i);
      fit.translation[i] = translations[v].at<double>(i);
      fit.rotation_sigma[i] = std_extrinsics.at<double>(int(6 * v) + i);
      fit.translation_sigma[i] = std_extrinsics.at<double>(int(6 * v) + 3 + i);
    }
    fit.rms = per_view.at<double>(int(v));
    out.fits.push_back(fit);
    if (out.fits[v].rms > out.fits[worst].rms) worst = v;
  }
  const Intrinsics& i = model.intrinsics;
  bool finite = std::isfinite(out.rms);
  for (double x : {i.fx, i.fy, i.cx, i.cy, model.distortion.k1, model.distortion.k2,
                   model.distortion.p1, model.distortion.p2, model.distortion.k3}) {
    finite = finite && std::isfinite(x);
  }
  if (!finite || !(i.fx > 0) || !(i.fy > 0) || i.cx < 0 || i.cx > width || i.cy < 0 ||
      i.cy > height) {
    return Stop(out, kDidNotConverge, "did not converge: the camera found is no camera");
  }
  if (!(out.rms <= options.max_rms)) {
    return Stop(out, kDidNotConverge,
                "did not converge: the corners lie " + Figure(out.rms, 2) +
                    " px (RMS) from where the camera puts them, at most " +
                    Figure(options.max_rms, 2) + "; worst view " + out.fits[worst].name + ", " +
                    Figure(out.fits[worst].rms, 2) + " px");
  }
  if (!placements.empty() && !RecoverPose(corners, placements, board, options.max_rms, &out)) {
    out.code = kDidNotConverge;
  }
  return out;
}

CameraCalibration CalibrateChessboard(const std::vector<BoardView>& views,
                                      const BoardGeometry& board,
                                      const std::vector<BoardPlacement>& placements,
                                      const ChessboardOptions& options) {
  std::vector<std::string> names;
  std::vector<std::vector<Pixel>> corners;
  int width = 0, height = 0;
  for (const BoardView& view : views) {
    const GrayPicture& p = view.picture;
    if (width == 0) {
      width = p.width;
      height = p.height;
    }
    if (p.width != width || p.height != height) {
      CameraCalibration out;
      return Stop(out, kPictureRefused,
                  view.name + ": " + std::to_string(p.width) + " x " + std::to_string(p.height) +
                      " pixels, the views before it " + std::to_string(width) + " x " +
                      std::to_string(height));
    }
    const FoundBoard found = FindBoard(view.name, p, board, options.corners);
    if (found.code != kSuccess) {
      CameraCalibration out;
      out.views = static_cast<int>(corners.size());
      return Stop(out, found.code, found.reason);
    }
    names.push_back(view.name);
    corners.push_back(found.corners);
  }
  return CalibrateFromCorners(names, corners, width, height, board, placements, options);
}

}  // namespace calc
