// Each figure a round computed, beside the truth, with its scatter and the
// rule it is judged by, from the calculation nodes' last answers in the
// event log (docs/calibration.md, "In the event log").
//
// Per laser the plane's normal and offset (judged by the accuracy goals of
// docs/calibration-accuracy.md: the round itself never sees the truth), the
// check's residuals (judged by the check node's own answer: each picture's
// floor and wall parts at most `max_bias_px` aside on average, RMS and
// worst only where configured), the distance check's wall (the distance
// node's rule that the lasers' walls lie within 2 mm of each other, and the
// accuracy goal), and the camera the camera parameter node measured from
// chessboard views (focal lengths, principal point, k1, height and pitch;
// judged by the node's own rule, no accuracy goal). A node that failed gives
// one row with its code and reason. The scatter is what the node measured
// of its own points: the plane fit's RMS and the wall points' spread, with
// their counts, the reprojection RMS over the views. The uncertainty is the
// 1-sigma the node reported, where it reports one.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_ROUND_FIGURES_H_
#define LASERCALI_TOOLS_REPORT_PAGE_ROUND_FIGURES_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/report_page/round_log.h"

namespace reportpage {

// The accuracy goals the calibration is measured against.
inline constexpr double kGoalNormalDeg = 0.05;
inline constexpr double kGoalOffsetMm = 0.5;
inline constexpr double kGoalDistanceMm = 0.5;

struct Figure {
  std::string group;     // "left laser plane", "plane check", "distance check", "camera"
  std::string what;      // "normal", "offset", "residuals", "wall distance"
  std::string computed;  // with units
  std::string truth;     // "" when the round has none
  std::string error;
  std::string scatter;
  std::string uncertainty;  // the node's 1-sigma, "" when it reports none
  std::string rule;
  std::string verdict;  // "pass", "fail", or "" when no rule applies
  // |error| as a share of its goal, for the plot of errors against goals.
  std::optional<double> share_of_goal;
};

std::vector<Figure> RoundFigures(const RoundLog& log);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_ROUND_FIGURES_H_
