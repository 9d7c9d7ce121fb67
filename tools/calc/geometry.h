// The geometry of the calibration target as the camera sees it.
//
// Everything is in the robot's frame: origin on the floor right below the
// camera, x forward, y to the left, z up, lengths in centimetres, angles in
// degrees (docs/camera-sim.md). The camera is a pinhole `height` above the
// floor, tilted down by `pitch`; pixel centres are at whole numbers. A
// CameraGeometry may also be made from a measured camera (camera_model.h):
// then its pose may be turned and moved, and its lens may distort; the
// pixels its rays go through are undistorted ones (Undistorted()), where an
// ideal pinhole with the same intrinsics shows what the picture shows. The
// target is the floor (z = 0) and a flat wall across the view at x =
// distance, `wall_height` high. Locate() tells where the ray through a pixel
// meets the target: on the floor, on the wall, or on neither. All functions
// are pure and use plain IEEE arithmetic, so they give the same bits on
// every target.
#ifndef LASERCALI_TOOLS_CALC_GEOMETRY_H_
#define LASERCALI_TOOLS_CALC_GEOMETRY_H_

#include <memory>
#include <vector>

namespace calc {

struct CameraModel;  // camera_model.h

inline constexpr double kPi = 3.14159265358979323846;
inline double Radians(double degrees) { return degrees * kPi / 180.0; }
inline double Degrees(double radians) { return radians * 180.0 / kPi; }

struct Vec3 {
  double x = 0, y = 0, z = 0;
};
inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(double k, Vec3 a) { return {k * a.x, k * a.y, k * a.z}; }
inline double Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The camera's intrinsics and pose (the simulator's CameraModel).
struct Camera {
  double fx = 450, fy = 450;  // focal lengths, pixels
  double cx = 320, cy = 240;  // principal point, pixels
  double height = 5;          // above the floor, cm
  double pitch = 10;          // tilt down from level, degrees
};

struct Pixel {
  double u = 0, v = 0;  // column, row
};

// A laser's plane of light: Dot(normal, p) == offset for its points p. The
// normal is a unit vector with normal.y > 0 (it points to the left).
struct Plane {
  Vec3 normal{0, 1, 0};
  double offset = 0;  // cm
};

// The camera's centre and axes, worked out once.
class CameraGeometry {
 public:
  explicit CameraGeometry(const Camera& camera);
  // The camera of a model (camera_model.cpp): its intrinsics, its whole pose
  // and its lens. A model with no distortion, x = y = 0 and yaw = roll = 0
  // gives the very bits of the pinhole of its intrinsics, height and pitch.
  explicit CameraGeometry(const CameraModel& model);
  // The intrinsics, height and pitch.
  const Camera& camera() const { return camera_; }
  // Where an ideal pinhole with the camera's intrinsics shows what the
  // picture shows at `pixels`: the lens's distortion undone. Without
  // distortion the pixels come back as they are.
  std::vector<Pixel> Undistorted(const std::vector<Pixel>& pixels) const;
  Vec3 centre() const { return centre_; }
  // The direction (not of unit length) of the ray through pixel `p`.
  Vec3 Ray(Pixel p) const;
  // Where point `q` shows in the picture; false when it lies behind the
  // camera (or in its plane).
  bool Project(Vec3 q, Pixel* p) const;

 private:
  Camera camera_;
  Vec3 right_, down_, forward_, centre_;
  std::shared_ptr<const CameraModel> lens_;  // when the lens distorts
};

enum class Surface { kFloor, kWall, kNeither };

// The floor and the wall of one picture.
struct Target {
  double distance = 30;      // the wall's x
  double wall_height = 200;  // its top edge
};

struct Located {
  Surface surface = Surface::kNeither;
  Vec3 point;  // where the ray meets that surface (undefined for kNeither)
};

// Where the ray through `p` meets the target: the floor when it comes down
// on the floor before the wall (0 < x <= distance), else the wall when it
// meets it between the floor and its top edge, else neither.
Located Locate(const CameraGeometry& geometry, const Target& target, Pixel p);

// The picture row where the foot of the wall (x = distance, z = 0) shows at
// column `u`; rows below it (larger) see the floor, rows above the wall.
double FootRow(const CameraGeometry& geometry, double distance, double u);

// Where the ray through `p` meets `plane`; false when it runs parallel to
// the plane or meets it behind the camera.
bool Triangulate(const CameraGeometry& geometry, const Plane& plane, Pixel p, Vec3* point);

// The picture column where the line in which `plane` meets a surface of the
// target crosses row `v`; false when that line does not cross the picture's
// rows (it is seen edge-on or lies behind the camera).
bool ColumnAt(const CameraGeometry& geometry, const Plane& plane, Surface surface,
              const Target& target, double v, double* u);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_GEOMETRY_H_
