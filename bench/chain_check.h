// The check's pass rule on one robot of bench/chain_accuracy: its verdicts
// on the factory pictures the robot's round stored, against the true
// planes and against planes slightly off.
//
// CheckRobot reads the pictures a round's node stored (kivrun
// --pictures-out: DIR/left/<n>.bmp and DIR/right/<n>.bmp, as the plane and
// check nodes read them) and checks them, as the check node does, through
// two cameras: the one the round measured (the model file its camera
// parameter node wrote) and the simulator's own. Through each, it checks
// each laser's true plane (a failure is a false reject) and the plane off
// by 0.1 degrees of yaw, 0.1 degrees of roll or 0.2 mm of offset, either
// way (a pass is a false accept). It throws std::invalid_argument when the
// simulator refuses the robot, or the model file or a picture cannot be
// read.
#ifndef LASERCALI_BENCH_CHAIN_CHECK_H_
#define LASERCALI_BENCH_CHAIN_CHECK_H_

#include <string>

#include "tests/calc/target_pictures.h"

namespace chainbench {

struct CheckVerdicts {
  int true_failed = 0;    // of 2
  int off_passed = 0;     // of 12
  double true_bias = 0;   // the largest with a true plane, px
  double off_bias = 1e9;  // the smallest with a plane off, px
};

struct RobotChecks {
  CheckVerdicts measured;  // through the camera the round measured
  CheckVerdicts truth;     // through the simulator's camera
};

RobotChecks CheckRobot(const std::string& preset, const calctest::Robot& robot,
                       const std::string& pictures_dir, const std::string& camera_file);

}  // namespace chainbench

#endif  // LASERCALI_BENCH_CHAIN_CHECK_H_
