// The plane fit's points and residuals, worked out again from the pictures
// for the page's plots, while the round does not record them itself.
//
// RecomputePlanePoints takes the pictures the plane node read (its last
// responder event's "needs"), as the round left them, and the camera the
// log's settings describe, and runs the plane node's own steps on them
// (tools/calc: CalibrateLaser, LocateStripe). Each laser's plane comes out
// as the node fitted it, and the page compares it with the plane the node
// logged (rounded to 0.0001 degree and 0.0001 mm): when they differ, the
// pictures or the camera are not those the node worked from, and the page
// says so beside the plots. For every stripe point it gives the picture's
// distance, the row, the signed distance from the plane (µm) and where the
// point lies in the plane: along it from the point nearest the robot's
// origin (mm, forward) and its height (mm). A picture written again after
// the plane node answered is left out, named in the laser's notes.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_PLANE_POINTS_H_
#define LASERCALI_TOOLS_REPORT_PAGE_PLANE_POINTS_H_

#include <string>
#include <vector>

#include "tools/calc/plane_fit.h"
#include "tools/report_page/round_log.h"

namespace reportpage {

struct DistancePoints {
  int distance = 0;  // cm, from the picture's number
  std::string picture;
  std::vector<int> row;
  std::vector<double> residual_um;
  std::vector<double> along_mm;
  std::vector<double> height_mm;
};

struct LaserPoints {
  std::string side;     // "left", "right"
  std::string problem;  // why there are no points, or ""
  std::vector<std::string> notes;
  calc::PlaneAngles plane;  // as fitted again (offset in cm)
  double rms_um = 0;
  int points = 0;
  bool matches_log = false;  // the plane the node logged is this one
  std::string logged;        // the logged plane, in words
  std::vector<DistancePoints> distances;
};

// Empty when the log was not read or the plane node's last answer was not
// computed from pictures.
std::vector<LaserPoints> RecomputePlanePoints(const RoundLog& log);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_PLANE_POINTS_H_
