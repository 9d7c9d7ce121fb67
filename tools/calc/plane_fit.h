// A plane through weighted points by least squares, and a laser plane's
// angles.
//
// FitPlane minimises the weighted sum of squared distances of the points
// from the plane: the plane passes through the weighted centroid, and its
// normal is the eigenvector of the smallest eigenvalue of the weighted
// scatter matrix. The 3 x 3 eigenproblem is solved by cyclic Jacobi
// rotations in plain IEEE arithmetic (no library call whose last bits could
// differ between targets). The fit also says how well the points span a
// plane: `spread` is the standard deviation of the points along the
// plane's second axis, near zero when they all lie on one line.
//
// Angles follow the camera simulator's lasers (docs/camera-sim.md): with
// yaw and roll 0 the plane stands upright and points straight ahead; the
// normal is (-sin yaw cos roll, cos yaw cos roll, sin roll).
#ifndef LASERCALI_TOOLS_CALC_PLANE_FIT_H_
#define LASERCALI_TOOLS_CALC_PLANE_FIT_H_

#include <vector>

#include "tools/calc/geometry.h"

namespace calc {

struct PlaneFit {
  bool ok = false;    // false: fewer than 3 points, or no weight
  Plane plane;        // normal.y >= 0
  double rms = 0;     // weighted root mean square distance from the plane
  double worst = 0;   // largest distance of a point from the plane
  double spread = 0;  // weighted standard deviation along the plane's second axis
  double length = 0;  // ... and along its first (longest) axis
};

// `weights` may be empty (all 1); otherwise one per point, none negative.
PlaneFit FitPlane(const std::vector<Vec3>& points, const std::vector<double>& weights = {});

// The eigenvalues (ascending) and unit eigenvectors of a symmetric 3 x 3
// matrix `m` (row major).
void SymmetricEigen(const double m[9], double values[3], Vec3 vectors[3]);

struct PlaneAngles {
  double yaw = 0, roll = 0;  // degrees
  double offset = 0;         // cm, as Plane::offset
};
PlaneAngles AnglesOf(const Plane& plane);
Plane PlaneFromAngles(const PlaneAngles& angles);

// The angle between two planes' normals, degrees.
double AngleBetween(const Plane& a, const Plane& b);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_PLANE_FIT_H_
