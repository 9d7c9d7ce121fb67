#include "platform/sunxi_cam/board_light.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/sunxi_cam/fixed_math.h"
#include "platform/sunxi_cam/stripe_light.h"

namespace sunxi_cam::sim {
namespace {

constexpr double kEdgeReach = 6.0;  // standard deviations beyond which an edge is a step

struct BoardFrame {
  Vec3 centre, ex, ey, ez;  // the board's centre and axes in the camera's frame
};

BoardFrame FrameOf(const Board& b) {
  const double cp = fixed::Cos(fixed::Radians(b.pitch)), sp = fixed::Sin(fixed::Radians(b.pitch));
  const double cy = fixed::Cos(fixed::Radians(b.yaw)), sy = fixed::Sin(fixed::Radians(b.yaw));
  const double cr = fixed::Cos(fixed::Radians(b.roll)), sr = fixed::Sin(fixed::Radians(b.roll));
  // R = Rz(roll) Ry(yaw) Rx(pitch); its columns are the board's axes.
  const double r[3][3] = {{cr * cy, cr * sy * sp - sr * cp, cr * sy * cp + sr * sp},
                          {sr * cy, sr * sy * sp + cr * cp, sr * sy * cp - cr * sp},
                          {-sy, cy * sp, cy * cp}};
  return {{b.x, b.y, b.z},
          {r[0][0], r[1][0], r[2][0]},
          {r[0][1], r[1][1], r[2][1]},
          {r[0][2], r[1][2], r[2][2]}};
}

// The normal integral: the share of a unit Gaussian below t.
double Phi(double t) {
  if (t <= -kEdgeReach) return 0.0;
  if (t >= kEdgeReach) return 1.0;
  return 0.5 * (1.0 + fixed::Erf(t * 0.70710678118654752440));
}

// The board's pattern along one axis, blurred: `inside` (between the outer
// square edges), `alternating` (+1 on even squares, -1 on odd ones, 0
// outside) and `board` (between the board's edges).
struct Blurred {
  double inside, alternating, board;
};

Blurred BlurAxis(double at, double sigma, int squares, double square, double margin) {
  const double first = -0.5 * squares * square;  // the first square's edge
  auto step = [&](double edge) { return Phi((edge - at) / sigma); };
  const double last = first + squares * square;
  Blurred out{};
  out.inside = step(last) - step(first);
  out.board = step(last + margin) - step(first - margin);
  // Only the squares within reach of `at` differ from a plain step.
  const double reach = kEdgeReach * sigma;
  const double last_k = squares - 1.0;
  const int k0 =
      static_cast<int>(std::clamp(std::floor((at - reach - first) / square), 0.0, last_k));
  const int k1 =
      static_cast<int>(std::clamp(std::floor((at + reach - first) / square), -1.0, last_k));
  double sum = 0;
  for (int k = k0; k <= k1; ++k) {
    const double a = first + k * square;
    sum += ((k % 2) == 0 ? 1.0 : -1.0) * (step(a + square) - step(a));
  }
  out.alternating = sum;
  return out;
}

}  // namespace

CameraPose BoardPose(const Board& board) {
  const BoardFrame f = FrameOf(board);
  const double x0 = -0.5 * (board.cols - 1) * board.square;
  const double y0 = -0.5 * (board.rows - 1) * board.square;
  const Vec3 origin = f.centre + x0 * f.ex + y0 * f.ey;
  CameraPose pose{};
  const Vec3 axes[3] = {f.ex, f.ey, f.ez};
  for (int j = 0; j < 3; ++j) {
    pose.rotation[0][j] = axes[j].x;
    pose.rotation[1][j] = axes[j].y;
    pose.rotation[2][j] = axes[j].z;
  }
  pose.translation[0] = origin.x;
  pose.translation[1] = origin.y;
  pose.translation[2] = origin.z;
  return pose;
}

namespace {

// Point i of `steps` along edge `edge` (top, bottom, left, right) of the
// rectangle w x h (half sizes, cm) around the board's centre, and where the
// lens shows it; `seen` false when it is behind the camera or beyond the
// lens model's radius.
struct OutlinePoint {
  double X = 0, Y = 0;  // from the board's centre, along its axes
  Vec3 p{};             // in the camera's frame
  bool seen = false;
  double u = 0, v = 0;
};
OutlinePoint SeeOutline(const BoardFrame& f, const Lens& lens, double w, double h, int edge, int i,
                        int steps) {
  OutlinePoint o;
  const double t = -1.0 + 2.0 * i / steps;
  o.X = edge < 2 ? t * w : (edge == 2 ? -w : w);
  o.Y = edge < 2 ? (edge == 0 ? -h : h) : t * h;
  o.p = f.centre + o.X * f.ex + o.Y * f.ey;
  if (!(o.p.z >= kNearestDrawn)) return o;
  const double x = o.p.x / o.p.z, y = o.p.y / o.p.z;
  if (!(x * x + y * y < lens.valid_r2())) return o;
  lens.Project(x, y, &o.u, &o.v);
  o.seen = true;
  return o;
}

}  // namespace

std::string BoardViewProblem(const Scene& scene) {
  const Board& b = scene.board;
  const BoardFrame f = FrameOf(b);
  if (!(Dot(f.ez, f.centre) > 0)) return "in view: it faces away from the camera";
  const Lens lens(scene.camera);
  // The outline of the squares, 16 points an edge: what a calibration needs
  // to see.
  const double w = 0.5 * (b.cols + 1) * b.square, h = 0.5 * (b.rows + 1) * b.square;
  for (int edge = 0; edge < 4; ++edge) {
    for (int i = 0; i <= 16; ++i) {
      const OutlinePoint o = SeeOutline(f, lens, w, h, edge, i, 16);
      if (!o.seen || !(o.u >= 0 && o.u <= kWidth - 1 && o.v >= 0 && o.v <= kHeight - 1)) {
        char text[200];
        std::snprintf(text, sizeof text,
                      "in view: its squares' outline at (%.4g, %.4g) cm from its centre is "
                      "outside the picture",
                      o.X, o.Y);
        return text;
      }
    }
  }
  return "";
}

namespace {

// The pixels the board (with its margin) may throw light on: the box
// around its outline seen through the lens, widened by the reach of the
// blur at the outline's depths (`defocus`) and of the pixel's own square,
// and by 4 pixels for the bow of the edges between the outline's points;
// the whole picture when part of the outline is not seen.
struct PixelBox {
  int u0 = 0, u1 = kWidth - 1, v0 = 0, v1 = kHeight - 1;
};
PixelBox BoardBox(const Scene& scene, const BoardFrame& f, const Lens& lens, bool defocus) {
  const Board& b = scene.board;
  double blur = 1.0;
  const double w = 0.5 * (b.cols + 1) * b.square + b.margin;
  const double h = 0.5 * (b.rows + 1) * b.square + b.margin;
  double u_min = 1e300, u_max = -1e300, v_min = 1e300, v_max = -1e300;
  for (int edge = 0; edge < 4; ++edge) {
    for (int i = 0; i <= 32; ++i) {
      const OutlinePoint o = SeeOutline(f, lens, w, h, edge, i, 32);
      if (!o.seen) return PixelBox();
      if (defocus) blur = std::max(blur, BlurSigma(scene, o.p.z));
      u_min = std::min(u_min, o.u);
      u_max = std::max(u_max, o.u);
      v_min = std::min(v_min, o.v);
      v_max = std::max(v_max, o.v);
    }
  }
  const double pad = 4 + kEdgeReach * blur;
  if (!(std::isfinite(u_min + u_max + v_min + v_max + pad))) return PixelBox();
  PixelBox box;
  box.u0 = static_cast<int>(std::clamp(std::floor(u_min - pad), 0.0, kWidth - 1.0));
  box.u1 = static_cast<int>(std::clamp(std::ceil(u_max + pad), 0.0, kWidth - 1.0));
  box.v0 = static_cast<int>(std::clamp(std::floor(v_min - pad), 0.0, kHeight - 1.0));
  box.v1 = static_cast<int>(std::clamp(std::ceil(v_max + pad), 0.0, kHeight - 1.0));
  return box;
}

}  // namespace

void AddBoardLight(const Scene& scene, const Lens& lens, bool defocus, double* light,
                   bool whole_picture) {
  const Board& b = scene.board;
  const BoardFrame f = FrameOf(b);
  const PixelBox box = whole_picture ? PixelBox() : BoardBox(scene, f, lens, defocus);
  const double along_centre = Dot(f.ez, f.centre);
  const PixelDirections& directions = DirectionsOf(scene.camera);
  const double half_width = 0.5 * (b.cols + 1) * b.square + b.margin;
  const double half_height = 0.5 * (b.rows + 1) * b.square + b.margin;
  for (int v = box.v0; v <= box.v1; ++v) {
    for (int u = box.u0; u <= box.u1; ++u) {
      const std::size_t i = static_cast<std::size_t>(v) * kWidth + u;
      if (!directions.ok[i]) continue;
      const double x = directions.x[i], y = directions.y[i];
      const Vec3 d{x, y, 1.0};
      const double along = Dot(f.ez, d);
      if (!(along > 0)) continue;
      const double t = along_centre / along;  // also the depth: d has depth 1
      if (!(t >= kNearestDrawn)) continue;
      const Jacobian2 inv = Inverse(lens.JacobianAt(x, y));
      const Vec3 dd_du{inv.uu, inv.vx, 0.0}, dd_dv{inv.uy, inv.vy, 0.0};
      const Vec3 dp_du = t * (dd_du - (Dot(f.ez, dd_du) / along) * d);
      const Vec3 dp_dv = t * (dd_dv - (Dot(f.ez, dd_dv) / along) * d);
      const Vec3 rel = t * d - f.centre;
      const double bx = Dot(f.ex, rel), by = Dot(f.ey, rel);
      const double blur = defocus ? BlurSigma(scene, t) : 0.0;
      const double sigma = std::sqrt(blur * blur + 1.0 / 12.0);
      const double xu = Dot(f.ex, dp_du), xv = Dot(f.ex, dp_dv);
      const double yu = Dot(f.ey, dp_du), yv = Dot(f.ey, dp_dv);
      const double sx = sigma * std::sqrt(xu * xu + xv * xv);
      const double sy = sigma * std::sqrt(yu * yu + yv * yv);
      // A ray that meets the board almost edge-on sees no definite point.
      if (!(sx > 0 && sy > 0 && std::isfinite(sx) && std::isfinite(sy) && std::isfinite(bx) &&
            std::isfinite(by))) {
        continue;
      }
      // Beyond the board's edges by more than the blur's reach: no light.
      if (!(std::fabs(bx) < half_width + kEdgeReach * sx &&
            std::fabs(by) < half_height + kEdgeReach * sy)) {
        continue;
      }
      const Blurred px = BlurAxis(bx, sx, b.cols + 1, b.square, b.margin);
      const Blurred py = BlurAxis(by, sy, b.rows + 1, b.square, b.margin);
      const double black = 0.5 * (px.inside * py.inside + px.alternating * py.alternating);
      const double reflectance = px.board * py.board - (1.0 - b.black) * black;
      light[i] += b.white * reflectance;
    }
  }
}

}  // namespace sunxi_cam::sim
