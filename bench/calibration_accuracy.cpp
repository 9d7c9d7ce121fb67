// calibration_accuracy: the computing calculation nodes against the camera
// simulator's truth, over random laser poses played as whole factory
// rounds.
//
// For each pose (tests/calc/target_pictures.h: yaw +-5 and roll +-3 degrees,
// emitters +-1 cm, camera noise 0.5 to 3, ambient light 0 to 20, a wall at
// 10 to 40 cm) it writes a scenario, lets kivrun play the factory round
// against the node (distances 5 to 45, the plane calibration, its check,
// then a distance check at the pose's wall) with the computing plane,
// check and distance nodes, and reads their answer events: each recovered
// plane beside the true one, the check's residuals, the measured wall.
// It prints the worst and median errors against the goal (0.05 degrees of
// normal and 0.5 mm of offset for each plane, 0.5 mm for the distance),
// then the time the calculations take in process.
//
// The program enters a /tmp of its own first (platform/sandbox/node_tmp.h),
// where it keeps its scenarios and logs; each round's kivrun gives the node
// a further empty one, so every round starts with no pictures. With
// --machine-tmp both use the machine's /tmp. Usage: kUsage and kHelp below.
#include <rapidjson/document.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "bench/kivrun_rounds.h"
#include "platform/sandbox/node_tmp.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/calc/target_pictures.h"
#include "tools/calc/distance.h"
#include "tools/calc/laser_calibration.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;

constexpr double kGoalNormalDegrees = 0.05;
constexpr double kGoalOffsetMm = 0.5;
constexpr double kGoalDistanceMm = 0.5;

struct Figures {
  std::vector<double> values;
  void Add(double v) { values.push_back(v); }
  double Worst() const {
    return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
  }
  double Median() const { return benchrounds::Median(values); }
};

std::string Scenario(const calctest::Pose& pose) {
  std::ostringstream s;
  s << "{\"description\": \"calibration_accuracy pose\", \"config_file\": \""
    << LASERCALI_SOURCE_DIR << "/scenarios/lasercali.json\", \"camera_model\": \""
    << LASERCALI_SOURCE_DIR << "/scenarios/cameras/ideal.yaml\", \"steps\": [\n"
    << "{\"responder\": \"plane\", \"compute\": true},\n"
    << "{\"responder\": \"check\", \"compute\": true},\n"
    << "{\"responder\": \"distance\", \"compute\": true},\n"
    << "{\"camera\": {\"scene\": " << calctest::PoseJson(pose) << "}},\n"
    << "{\"send\": \"CAMERACALI\", \"fields\": {\"distance\": 4369}},\n";
  for (int d = 5; d <= 45; d += 5) {
    s << "{\"camera\": {\"distance\": " << d << "}},\n"
      << "{\"repeat\": {\"send\": \"CAMERACALI\", \"fields\": {\"distance\": " << d
      << "}}, \"until\": {\"topic\": \"CAMERACALIRES\", \"fields\": {\"kind\": 2, \"distance\": "
      << d << "}}, \"every_ticks\": 10, \"limit\": 20},\n";
  }
  char wall[64];
  std::snprintf(wall, sizeof wall, "%.17g", pose.wall);
  s << "{\"send\": \"CAMERACALI\", \"fields\": {\"distance\": 0}},\n"
    << "{\"wait\": {\"topic\": \"CAMERACALIRES\", \"fields\": {\"kind\": 4}}, \"within_ticks\": "
       "10},\n"
    << "{\"camera\": {\"distance\": " << wall << "}},\n"
    << "{\"repeat\": {\"send\": \"CAMERACALI\", \"fields\": {\"distance\": 13107}}, \"until\": "
       "{\"topic\": \"laser_state\"}, \"every_ticks\": 10, \"limit\": 20},\n"
    << "{\"send\": \"CAMERACALI\", \"fields\": {\"distance\": 8738}}\n]}\n";
  return s.str();
}

struct Round {
  bool ran = false;
  std::string problem;
  double seconds = 0;
  double normal[2] = {}, offset[2] = {};  // degrees, mm
  double rms[2] = {}, worst[2] = {};      // check residuals, px
  double distance = 0;                    // mm, measured minus true
  int plane_result = 0, check_result = 0, distance_status = -1;
};

Round Play(const std::string& kivrun, const benchrounds::BenchFolder& folder,
           const calctest::Pose& pose) {
  Round round;
  const benchrounds::PlayedRound played =
      benchrounds::PlayRound(kivrun, folder, Scenario(pose), "pose");
  round.seconds = played.seconds;
  round.problem = played.problem;
  if (!round.problem.empty()) return round;
  std::istringstream lines(played.log);
  int answers = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("\"event\":\"answer\"") == std::string::npos) continue;
    rapidjson::Document e;
    e.Parse(line.c_str());
    if (e.HasParseError()) continue;
    const std::string node = e["node"].GetString();
    const rapidjson::Value& fields = e["fields"];
    if (node == "plane") {
      round.plane_result = fields["result"].GetInt();
      if (round.plane_result != 1) {
        round.problem = std::string("plane: ") + e["reason"].GetString();
        return round;
      }
      const char* sides[2] = {"left", "right"};
      for (int i = 0; i < 2; ++i) {
        round.normal[i] = e["errors"][sides[i]]["normal_deg"].GetDouble();
        round.offset[i] = std::fabs(e["errors"][sides[i]]["offset_mm"].GetDouble());
      }
      ++answers;
    } else if (node == "check") {
      round.check_result = fields["check_result"].GetInt();
      const char* sides[2] = {"left", "right"};
      for (int i = 0; i < 2 && round.check_result == 1; ++i) {
        round.rms[i] = e["residuals"][sides[i]]["rms_px"].GetDouble();
        round.worst[i] = e["residuals"][sides[i]]["worst_px"].GetDouble();
      }
      ++answers;
    } else if (node == "distance") {
      round.distance_status = fields["status"].GetInt();
      if (round.distance_status != 0) {
        round.problem = std::string("distance: ") + e["reason"].GetString();
        return round;
      }
      round.distance = e["errors"]["distance_mm"].GetDouble();
      ++answers;
    }
  }
  if (answers != 3) {
    round.problem = "the round gave " + std::to_string(answers) + " of the 3 answers";
    return round;
  }
  if (round.check_result != 1) {
    round.problem = "check result " + std::to_string(round.check_result);
    return round;
  }
  round.ran = true;
  return round;
}

// Milliseconds one call of `work` takes: the median of `runs`.
template <typename Work>
double Millis(int runs, Work work) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    work();
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

// The calculations alone, on the default scene's factory pictures.
void TimeCalculations() {
  sim::Reset();
  const calctest::TargetPictures pictures(calctest::FactoryDistances());
  const calc::CameraGeometry g(calctest::CameraOf(sim::Truth().camera));
  const auto left = pictures.Of(1), right = pictures.Of(8);
  calc::Plane planes[2];
  const double plane = Millis(9, [&] {
    planes[0] = calc::CalibrateLaser(g, left).fit.plane;
    planes[1] = calc::CalibrateLaser(g, right).fit.plane;
  });
  const double check = Millis(9, [&] {
    calc::CheckPlane(g, planes[0], left);
    calc::CheckPlane(g, planes[1], right);
  });
  sim::SetDistance(27.5);
  calc::StripePicture dis[2];
  for (int i = 0; i < 2; ++i) {
    dis[i].name = i == 0 ? "dis_left" : "dis_right";
    dis[i].picture = {sim::Luminance(i == 0 ? 1 : 8), sim::kWidth, sim::kHeight, sim::kWidth};
  }
  const double distance = Millis(9, [&] {
    calc::MeasureWall(g, planes[0], dis[0]);
    calc::MeasureWall(g, planes[1], dis[1]);
  });
  std::printf(
      "calculation time (in process, median of 9): plane node %.1f ms (18 pictures, both "
      "lasers), check node %.1f ms, distance node %.1f ms\n",
      plane, check, distance);
  sim::Reset();
}

constexpr char kUsage[] =
    "usage: calibration_accuracy [--poses N] [--first K] [--kivrun PATH] [--verbose]\n"
    "                            [--machine-tmp]\n";

constexpr char kHelp[] =
    "\n"
    "The computing calculation nodes against the camera simulator's truth: each\n"
    "random laser pose is a whole factory round played by kivrun; prints the\n"
    "worst and median errors against the goal, then the time the calculations\n"
    "take in process (docs/calibration-accuracy.md).\n"
    "  --poses N       how many poses (default 100)\n"
    "  --first K       the first pose's number (default 0); pose K is the same\n"
    "                  everywhere\n"
    "  --kivrun PATH   the kivrun to play the rounds (default: the one built with\n"
    "                  this program)\n"
    "  --verbose       a line per pose\n"
    "  -h, --help      show this text\n"
    "Exit code 0 when every round ran and every error is within the goal, 1\n"
    "when not, 2 for a bad command line.\n"
    "\n";

int Usage(const char* why) {
  std::fprintf(stderr, "calibration_accuracy: %s\n%s", why, kUsage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int poses = 100;
  long long first = 0;
  std::string kivrun = KIVRUN_PATH;
  bool verbose = false;
  const bool machine_tmp = sandbox::TakeMachineTmp(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::printf("%s%s%s", kUsage, kHelp, sandbox::kNodeTmpHelp);
      return 0;
    }
    if ((arg == "--poses" || arg == "--first" || arg == "--kivrun") && i + 1 >= argc) {
      return Usage((arg + " needs a value").c_str());
    }
    if (arg == "--poses") {
      poses = std::atoi(argv[++i]);
      if (poses < 1) return Usage("--poses needs a whole number of 1 or more");
    } else if (arg == "--first") {
      first = std::atoll(argv[++i]);
      if (first < 0) return Usage("--first needs a whole number of 0 or more");
    } else if (arg == "--kivrun") {
      kivrun = argv[++i];
    } else if (arg == "--verbose") {
      verbose = true;
    } else {
      return Usage(("unknown argument " + arg).c_str());
    }
  }

  benchrounds::BenchFolder folder;
  int exit_code = 0;
  if (!folder.Enter("calibration_accuracy", machine_tmp, kivrun, &exit_code)) return exit_code;

  Figures normal, offset, distance, rms, worst, seconds;
  int failed = 0;
  std::printf(
      "calibration accuracy: %d random laser poses from pose %lld, each a whole factory "
      "round through %s\n",
      poses, first, kivrun.c_str());
  for (int i = 0; i < poses; ++i) {
    const long long number = first + i;
    const calctest::Pose pose = calctest::RandomPose(static_cast<uint64_t>(number));
    const Round round = Play(kivrun, folder, pose);
    if (!round.ran) {
      ++failed;
      std::printf("pose %lld: %s\n  %s\n", number, round.problem.c_str(),
                  calctest::PoseJson(pose).c_str());
      continue;
    }
    for (int s = 0; s < 2; ++s) {
      normal.Add(round.normal[s]);
      offset.Add(round.offset[s]);
      rms.Add(round.rms[s]);
      worst.Add(round.worst[s]);
    }
    distance.Add(std::fabs(round.distance));
    seconds.Add(round.seconds);
    if (verbose) {
      std::printf(
          "pose %lld: normal %.5f %.5f deg, offset %.4f %.4f mm, wall %.2f cm: %+.4f mm, "
          "residuals %.4f %.4f px RMS\n",
          number, round.normal[0], round.normal[1], round.offset[0], round.offset[1], pose.wall,
          round.distance, round.rms[0], round.rms[1]);
    }
  }
  fs::remove_all(folder.dir);

  const int planes = static_cast<int>(normal.values.size());
  std::printf("rounds that ran to their end: %d of %d\n", poses - failed, poses);
  std::printf("%-34s %10s %10s %8s\n", "", "worst", "median", "goal");
  std::printf("%-34s %10.5f %10.5f %8.2f\n", "plane normal error (degrees)", normal.Worst(),
              normal.Median(), kGoalNormalDegrees);
  std::printf("%-34s %10.4f %10.4f %8.2f\n", "plane offset error (mm)", offset.Worst(),
              offset.Median(), kGoalOffsetMm);
  std::printf("%-34s %10.4f %10.4f %8.2f\n", "distance check error (mm)", distance.Worst(),
              distance.Median(), kGoalDistanceMm);
  std::printf("%-34s %10.4f %10.4f %8.2f\n", "check residual RMS (px)", rms.Worst(), rms.Median(),
              calc::kCheckMaxRms);
  std::printf("%-34s %10.4f %10.4f %8.2f\n", "check residual, largest (px)", worst.Worst(),
              worst.Median(), calc::kCheckMaxWorst);
  std::printf("(%d planes, %zu distance checks)\n", planes, distance.values.size());
  std::printf("wall time of a round (kivrun, calculations included): median %.2f s, worst %.2f s\n",
              seconds.Median(), seconds.Worst());
  TimeCalculations();

  const bool within = failed == 0 && normal.Worst() <= kGoalNormalDegrees &&
                      offset.Worst() <= kGoalOffsetMm && distance.Worst() <= kGoalDistanceMm;
  std::printf("%s\n", within ? "every error within the goal" : "NOT within the goal");
  return within ? 0 : 1;
}
