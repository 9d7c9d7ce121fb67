#include "tools/report_page/camera_grid.h"

#include <algorithm>
#include <cmath>

namespace reportpage {

namespace {

struct Point {
  double column, row;
};

// The picture point of the ideal (undistorted, normalised) point (x, y).
Point Map(const LensFigures& c, double x, double y) {
  const double scale = 1 + c.k1 * (x * x + y * y);
  return {c.fx * x * scale + c.cx, c.fy * y * scale + c.cy};
}

}  // namespace

std::optional<LensFigures> LensOf(const rapidjson::Value& figures) {
  if (!figures.IsObject()) return std::nullopt;
  LensFigures lens;
  const std::pair<const char*, double*> members[] = {
      {"fx", &lens.fx}, {"fy", &lens.fy}, {"cx", &lens.cx}, {"cy", &lens.cy}, {"k1", &lens.k1}};
  for (const auto& [name, value] : members) {
    const auto it = figures.FindMember(name);
    if (it == figures.MemberEnd() || !it->value.IsNumber()) return std::nullopt;
    *value = it->value.GetDouble();
    if (!std::isfinite(*value)) return std::nullopt;
  }
  if (!(lens.fx > 0) || !(lens.fy > 0)) return std::nullopt;
  return lens;
}

CameraGrid GridOf(const LensFigures& truth, const LensFigures& recovered, int width, int height,
                  int step, int samples) {
  CameraGrid grid;
  samples = std::max(samples, 2);
  step = std::max(step, 1);
  // One line of the ideal picture from (u0, v0) to (u1, v1), in pixels.
  auto line = [&](double u0, double v0, double u1, double v1) {
    GridLine t, r;
    for (int i = 0; i < samples; ++i) {
      const double a = static_cast<double>(i) / (samples - 1);
      const double x = (u0 + a * (u1 - u0) - truth.cx) / truth.fx;
      const double y = (v0 + a * (v1 - v0) - truth.cy) / truth.fy;
      const Point p = Map(truth, x, y), q = Map(recovered, x, y);
      t.columns.push_back(p.column);
      t.rows.push_back(p.row);
      r.columns.push_back(q.column);
      r.rows.push_back(q.row);
      const double apart = std::hypot(p.column - q.column, p.row - q.row);
      if (!std::isfinite(apart)) grid.finite = false;
      grid.largest_difference_px = std::max(grid.largest_difference_px, apart);
    }
    grid.truth.push_back(std::move(t));
    grid.recovered.push_back(std::move(r));
  };
  for (int u = 0; u <= width; u += step) line(u, 0, u, height);
  for (int v = 0; v <= height; v += step) line(0, v, width, v);
  return grid;
}

}  // namespace reportpage
