// The report record and the node IDs of the calculation nodes
// (liblasercalc.so).
//
// Each calculation node publishes, right before each answer, a report of
// what it worked out on "LASERCALC_REPORT": which node answers, whether it
// answered, failed or refused, the pictures it could not use, and what it
// computed (docs/calibration.md, "The report"). The answer records
// themselves are those of msgs/calimsgs.h; the report carries what does not
// fit in them, for whoever watches: a log, a summary, a test. The record
// holds a JSON object owned by the publisher; a subscriber reads it during
// its callback and copies what it keeps.
#ifndef LASERCALI_MSGS_CALCMSGS_H_
#define LASERCALI_MSGS_CALCMSGS_H_

#include <rapidjson/document.h>

namespace calctopics {

inline constexpr char kCalcReport[] = "LASERCALC_REPORT";

// The plug-in's nodes: the ID a host builds each by, and the short name its
// reports carry (the node of the same name in kivrun's scenarios).
struct CalcNodeName {
  const char* id;
  const char* node;
};
inline constexpr CalcNodeName kCalcNodes[] = {
    {"KivNodeLaserCalcPlane", "plane"},
    {"KivNodeLaserCalcCheck", "check"},
    {"KivNodeLaserCalcDistance", "distance"},
    {"KivNodeLaserCalcCameraParam", "ieparam"},
};

}  // namespace calctopics

// What a calculation node worked out for one answer ("LASERCALC_REPORT").
struct CalcReportMsg {
  rapidjson::Document report;  // a JSON object (docs/calibration.md)
};

#endif  // LASERCALI_MSGS_CALCMSGS_H_
