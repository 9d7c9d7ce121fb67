// chain_accuracy: the whole calibration chain against the camera simulator's
// truth, over random robots played as whole rounds.
//
// A robot (tests/calc/target_pictures.h, RandomRobot) is a preset's camera
// with its intrinsics and distortion varied, the lasers posed at random
// (yaw +-5 and roll +-3 degrees, emitters +-1 cm) and a seed of its own.
// For each robot the program writes the round of
// scenarios/robot_chain_round.json with the robot in its first camera step
// (sixteen chessboard views, the factory plane round through the camera
// they measure, the check, the distance check at 27.5 cm), lets kivrun play
// it against the node with the computing nodes, and reads their answer
// events: the measured camera, each plane and the wall beside the truth,
// with the 1-sigma each node reported. The round goes on when the check
// fails, so that a check's verdict counts like any other figure.
//
// It prints, for each figure, the worst, median and spread of its error
// over the robots, the goal, how often the reported 1-sigma covers the
// error, and the mean reported 1-sigma against the spread measured; then
// how often the check passed the recovered planes. Then, for the check's
// pass rule, the factory pictures the robot's round stored, checked in
// process (chain_check.h) through the camera the round measured and through
// the simulator's own, against each true plane (a failure is a
// false reject) and against planes off by 0.1 degrees of yaw or roll or
// 0.2 mm of offset, either way (a pass is a false accept).
//
// The program enters a /tmp of its own first (platform/sandbox/node_tmp.h),
// as bench/calibration_accuracy does. Usage: kUsage and kHelp below.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/chain_check.h"
#include "bench/kivrun_rounds.h"
#include "platform/sandbox/node_tmp.h"
#include "platform/sunxi_cam/camera_sim.h"
#include "tests/calc/target_pictures.h"
#include "tools/kivrun/calc_plugin_nodes.h"

namespace {

namespace fs = std::filesystem;
namespace sim = sunxi_cam::sim;

// One figure over the robots: its errors and the 1-sigmas reported with them.
struct Figure {
  const char* name;
  const char* unit;
  double goal;  // 0: none
  std::vector<double> errors, sigmas;

  double Worst() const {
    double w = 0;
    for (double e : errors) w = std::max(w, std::fabs(e));
    return w;
  }
  double Median() const {
    std::vector<double> v;
    for (double e : errors) v.push_back(std::fabs(e));
    return benchrounds::Median(v);
  }
  // The standard deviation of the errors about their mean.
  double Spread() const {
    if (errors.size() < 2) return 0;
    double mean = 0, sum = 0;
    for (double e : errors) mean += e;
    mean /= static_cast<double>(errors.size());
    for (double e : errors) sum += (e - mean) * (e - mean);
    return std::sqrt(sum / static_cast<double>(errors.size() - 1));
  }
  // The share of the errors within their reported 1-sigma; -1 without sigmas.
  double Covered() const {
    if (sigmas.size() != errors.size() || errors.empty()) return -1;
    int in = 0;
    for (std::size_t i = 0; i < errors.size(); ++i) in += std::fabs(errors[i]) <= sigmas[i];
    return static_cast<double>(in) / static_cast<double>(errors.size());
  }
  double MeanSigma() const {
    double s = 0;
    for (double v : sigmas) s += v;
    return sigmas.empty() ? 0 : s / static_cast<double>(sigmas.size());
  }
};

// The shipped chain round with the robot in its first camera step and the
// check's wait taking any verdict. Empty when the round is not as expected.
std::string Scenario(const rapidjson::Document& chain, const std::string& preset,
                     const calctest::Robot& robot) {
  rapidjson::Document d;
  d.CopyFrom(chain, d.GetAllocator());
  auto& a = d.GetAllocator();
  d["config_file"].SetString(
      (std::string(LASERCALI_SOURCE_DIR) + "/scenarios/lasercali.json").c_str(), a);
  rapidjson::Document scene;
  scene.Parse(calctest::RobotJson(robot).c_str());
  bool placed = false, waits = false;
  for (auto& step : d["steps"].GetArray()) {
    if (!placed && step.HasMember("camera") && step["camera"].HasMember("preset")) {
      step["camera"]["preset"].SetString(preset.c_str(), a);
      step["camera"].AddMember("scene", rapidjson::Value(scene, a), a);
      placed = true;
    }
    if (step.HasMember("wait") && step["wait"]["fields"].HasMember("check_result")) {
      step["wait"]["fields"].RemoveMember("check_result");
      step["wait"]["fields"].RemoveMember("plane_result");
      waits = true;
    }
  }
  if (!placed || !waits) return "";
  rapidjson::StringBuffer out;
  rapidjson::Writer<rapidjson::StringBuffer> w(out);
  d.Accept(w);
  return out.GetString();
}

double Get(const rapidjson::Value& object, const char* a, const char* b) {
  if (!object.IsObject() || !object.HasMember(a) || !object[a].IsObject()) return NAN;
  const rapidjson::Value& v = object[a];
  return v.HasMember(b) && v[b].IsNumber() ? v[b].GetDouble() : NAN;
}

struct Round {
  std::string problem;
  double seconds = 0;
  // The figures, in the order of kFigureNames: error and reported sigma.
  std::vector<double> errors, sigmas;
  int check_result = 0;
  double check_bias = 0;       // the larger of the lasers' biases, px
  std::string camera_problem;  // the camera parameter node's last failure
};

// The figures read from the log, in this order.
constexpr const char* kCameraMembers[] = {"fx", "fy", "cx", "cy", "k1", "height_cm", "pitch_deg"};

Round Play(const std::string& kivrun, const benchrounds::BenchFolder& folder,
           const std::string& text) {
  Round round;
  const std::string pictures = folder.dir + "/pictures";
  fs::remove_all(pictures);
  const benchrounds::PlayedRound played =
      benchrounds::PlayRound(kivrun, folder, text, "robot", "--pictures-out '" + pictures + "'");
  round.seconds = played.seconds;
  round.problem = played.problem;
  rapidjson::Document camera, plane, distance;
  std::istringstream lines(played.log);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("\"event\":\"answer\"") == std::string::npos) continue;
    rapidjson::Document e;
    e.Parse(line.c_str());
    if (e.HasParseError() || !e.HasMember("node")) continue;
    const std::string node = e["node"].GetString();
    if (node == "ieparam" && e.HasMember("code") && e["code"].IsInt()) {
      round.camera_problem = "camera parameter node: code " + std::to_string(e["code"].GetInt());
      if (e.HasMember("reason") && e["reason"].IsString()) {
        round.camera_problem += std::string(": ") + e["reason"].GetString();
      }
    }
    if (node == "ieparam" && e.HasMember("camera")) camera.Swap(e);
    if (node == "plane") plane.Swap(e);
    if (node == "distance") distance.Swap(e);
    if (node == "check") {
      round.check_result = e["fields"]["check_result"].GetInt();
      for (const char* side : {"left", "right"}) {
        round.check_bias = std::max(round.check_bias, Get(e["residuals"], side, "bias_px"));
      }
    }
  }
  if (!camera.IsObject() || !plane.IsObject() || !plane.HasMember("lasers") ||
      !distance.IsObject() || !distance.HasMember("errors")) {
    if (round.problem.empty()) round.problem = "the round gave no camera, planes or wall";
    return round;
  }
  for (const char* m : kCameraMembers) {
    // The focal lengths as a share of the true one, in per cent.
    const bool focal = m[0] == 'f';
    const double scale = focal ? 100 / Get(camera, "truth", m) : 1;
    round.errors.push_back(Get(camera, "errors", m) * scale);
    round.sigmas.push_back(Get(camera, "sigma", m) * scale);
  }
  round.errors.push_back(Get(camera, "camera", "rms_px"));
  round.sigmas.push_back(NAN);
  for (const char* side : {"left", "right"}) {
    const rapidjson::Value& got = plane["lasers"][side];
    const rapidjson::Value& truth = plane["truth"][side];
    for (const char* m : {"yaw", "roll", "offset_mm"}) {
      const double g = got.HasMember(m) ? got[m].GetDouble() : NAN;
      const double t = truth.HasMember(m) ? truth[m].GetDouble() : NAN;
      round.errors.push_back(g - t);
      round.sigmas.push_back(Get(got, "sigma", m));
    }
    round.errors.push_back(Get(plane["errors"], side, "normal_deg"));
    round.sigmas.push_back(NAN);
  }
  round.errors.push_back(distance["errors"]["distance_mm"].GetDouble());
  round.sigmas.push_back(NAN);
  return round;
}

std::vector<Figure> NewFigures() {
  return {{"fx", "%", 0.3, {}, {}},
          {"fy", "%", 0.3, {}, {}},
          {"cx", "px", 1, {}, {}},
          {"cy", "px", 1, {}, {}},
          {"k1", "", 0, {}, {}},
          {"camera height", "cm", 0, {}, {}},
          {"camera pitch", "deg", 0, {}, {}},
          {"RMS reprojection (value)", "px", 0.15, {}, {}},
          {"left yaw", "deg", 0, {}, {}},
          {"left roll", "deg", 0, {}, {}},
          {"left offset", "mm", 0.3, {}, {}},
          {"left normal (angle)", "deg", 0.05, {}, {}},
          {"right yaw", "deg", 0, {}, {}},
          {"right roll", "deg", 0, {}, {}},
          {"right offset", "mm", 0.3, {}, {}},
          {"right normal (angle)", "deg", 0.05, {}, {}},
          {"distance check", "mm", 0.5, {}, {}}};
}

// The check's verdicts over the robots through one camera.
struct CheckTally {
  int robots = 0, true_failed = 0, off_passed = 0;
  Figure true_bias{"", "px", 0, {}, {}}, off_bias{"", "px", 0, {}, {}};

  void Add(const chainbench::CheckVerdicts& v) {
    ++robots;
    true_failed += v.true_failed;
    off_passed += v.off_passed;
    true_bias.errors.push_back(v.true_bias);
    off_bias.errors.push_back(v.off_bias);
  }
  void Print(const char* camera) const {
    std::vector<double> least = off_bias.errors;
    std::sort(least.begin(), least.end());
    std::printf(
        "through %s, the check failed %d of %d true planes (false rejects; their bias at worst "
        "%.3f px, median %.3f px) and passed %d of %d planes off by 0.1 degrees of yaw or roll or "
        "0.2 mm of offset (false accepts; the smallest bias of a robot's disturbed planes: least "
        "%.3f px, median %.3f px)\n",
        camera, true_failed, 2 * robots, true_bias.Worst(), true_bias.Median(), off_passed,
        12 * robots, least.empty() ? 0.0 : least.front(), off_bias.Median());
  }
};

constexpr char kUsage[] =
    "usage: chain_accuracy [--robots N] [--first K] [--preset robot|harsh] [--kivrun PATH]\n"
    "                      [--verbose] [--machine-tmp]\n";

constexpr char kHelp[] =
    "\n"
    "The whole calibration chain (chessboard views, camera, planes, check,\n"
    "distance check) against the camera simulator's truth: each random robot is\n"
    "the round of scenarios/robot_chain_round.json played by kivrun; prints the\n"
    "worst, median and spread of each error, the goals, how often the reported\n"
    "1-sigma covers the error, and how often the check passed\n"
    "(docs/calibration-accuracy.md).\n"
    "  --robots N      how many robots (default 100)\n"
    "  --first K       the first robot's number (default 0); robot K is the same\n"
    "                  everywhere\n"
    "  --preset NAME   the camera preset the robots vary: robot (default) or harsh\n"
    "  --kivrun PATH   the kivrun to play the rounds (default: the one built with\n"
    "                  this program)\n"
    "  --verbose       a line per robot\n"
    "  -h, --help      show this text\n"
    "Exit code 0 when every round gave its answers and every error with a goal\n"
    "is within it, 1 when not, 2 for a bad command line.\n"
    "\n";

int Usage(const std::string& why) {
  std::fprintf(stderr, "chain_accuracy: %s\n%s", why.c_str(), kUsage);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int robots = 100;
  long long first = 0;
  std::string preset = "robot", kivrun = KIVRUN_PATH;
  bool verbose = false;
  const bool machine_tmp = sandbox::TakeMachineTmp(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::printf("%s%s%s", kUsage, kHelp, sandbox::kNodeTmpHelp);
      return 0;
    }
    const bool takes =
        arg == "--robots" || arg == "--first" || arg == "--preset" || arg == "--kivrun";
    if (takes && i + 1 >= argc) return Usage(arg + " needs a value");
    if (arg == "--robots") {
      robots = std::atoi(argv[++i]);
      if (robots < 1) return Usage("--robots needs a whole number of 1 or more");
    } else if (arg == "--first") {
      first = std::atoll(argv[++i]);
      if (first < 0) return Usage("--first needs a whole number of 0 or more");
    } else if (arg == "--preset") {
      preset = argv[++i];
      if (preset != "robot" && preset != "harsh") {
        return Usage("--preset needs robot or harsh, not '" + preset + "'");
      }
    } else if (arg == "--kivrun") {
      kivrun = argv[++i];
    } else if (arg == "--verbose") {
      verbose = true;
    } else {
      return Usage("unknown argument " + arg);
    }
  }

  rapidjson::Document chain;
  const std::string chain_path =
      std::string(LASERCALI_SOURCE_DIR) + "/scenarios/robot_chain_round.json";
  chain.Parse(benchrounds::ReadFile(chain_path).c_str());
  if (chain.HasParseError() || !chain.IsObject() || !chain.HasMember("steps")) {
    std::fprintf(stderr, "chain_accuracy: cannot read %s\n", chain_path.c_str());
    return 1;
  }
  // The preset's camera, which each robot varies.
  rapidjson::Document settings;
  settings.Parse(("{\"preset\": \"" + preset + "\"}").c_str());
  sim::Configure(settings);
  const sim::CameraModel preset_camera = sim::GetScene().camera;
  sim::Reset();

  benchrounds::BenchFolder folder;
  int exit_code = 0;
  if (!folder.Enter("chain_accuracy", machine_tmp, kivrun, &exit_code)) return exit_code;
  const fs::path dir = folder.dir;

  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // a line per robot as it comes
  std::vector<Figure> figures = NewFigures();
  std::vector<double> seconds;
  int failed = 0, checks_passed = 0;
  Figure recovered_bias{"", "px", 0, {}, {}};
  CheckTally through_measured, through_truth;
  std::printf(
      "chain accuracy: %d random robots under '%s' from robot %lld, each a whole chain "
      "round through %s\n",
      robots, preset.c_str(), first, kivrun.c_str());
  for (int i = 0; i < robots; ++i) {
    const long long number = first + i;
    const calctest::Robot robot =
        calctest::RandomRobot(static_cast<uint64_t>(number), preset_camera);
    const std::string text = Scenario(chain, preset, robot);
    if (text.empty()) {
      std::fprintf(stderr, "chain_accuracy: %s is not the chain round it expects\n",
                   chain_path.c_str());
      return 1;
    }
    const Round round = Play(kivrun, folder, text);
    seconds.push_back(round.seconds);
    checks_passed += round.check_result == 1;
    recovered_bias.errors.push_back(round.check_bias);
    chainbench::RobotChecks check;
    try {
      // The node's /tmp is the round's: --pictures-out copied it.
      const fs::path model = fs::path(kivrun::kCameraModelFile).lexically_relative("/tmp");
      check = chainbench::CheckRobot(preset, robot, (dir / "pictures").string(),
                                     (dir / "pictures" / model).string());
    } catch (const std::invalid_argument& e) {
      std::printf("robot %lld: %s%s%s\n", number, e.what(),
                  round.camera_problem.empty() ? "" : ("; " + round.camera_problem).c_str(),
                  round.problem.empty() ? "" : ("; " + round.problem).c_str());
      ++failed;
      continue;
    }
    through_measured.Add(check.measured);
    through_truth.Add(check.truth);
    if (round.errors.size() != figures.size()) {
      ++failed;
      std::printf("robot %lld: %s\n  %s\n", number, round.problem.c_str(),
                  calctest::RobotJson(robot).c_str());
      continue;
    }
    for (std::size_t f = 0; f < figures.size(); ++f) {
      figures[f].errors.push_back(round.errors[f]);
      if (!std::isnan(round.sigmas[f])) figures[f].sigmas.push_back(round.sigmas[f]);
    }
    if (verbose) {
      std::printf(
          "robot %lld: fx %+.3f %%, cx %+.2f, cy %+.2f px, normals %.4f %.4f deg, "
          "offsets %+.4f %+.4f mm, wall %+.3f mm, check %d (bias %.3f px; true planes %.3f px, "
          "off %.3f px)%s\n",
          number, round.errors[0], round.errors[2], round.errors[3], round.errors[11],
          round.errors[15], round.errors[10], round.errors[14], round.errors[16],
          round.check_result, round.check_bias, check.measured.true_bias, check.measured.off_bias,
          round.problem.empty() ? "" : " (the round failed)");
    }
  }
  fs::remove_all(dir);

  const int measured = robots - failed;
  std::printf("robots whose round gave every answer: %d of %d\n", measured, robots);
  std::printf("%-26s %10s %10s %10s %8s %9s %10s\n", "error", "worst", "median", "spread", "goal",
              "1σ covers", "mean 1σ");
  bool within = failed == 0;
  for (const Figure& f : figures) {
    const double covered = f.Covered();
    char goal[16] = "", cover[16] = "", sigma[16] = "";
    if (f.goal > 0) std::snprintf(goal, sizeof goal, "%.2f", f.goal);
    if (covered >= 0) std::snprintf(cover, sizeof cover, "%.0f %%", 100 * covered);
    if (!f.sigmas.empty()) std::snprintf(sigma, sizeof sigma, "%.4f", f.MeanSigma());
    std::printf("%-26s %10.4f %10.4f %10.4f %8s %9s %10s  %s\n", f.name, f.Worst(), f.Median(),
                f.Spread(), goal, cover, sigma, f.unit);
    if (f.goal > 0 && f.Worst() > f.goal) within = false;
  }
  std::sort(seconds.begin(), seconds.end());
  std::printf(
      "the check passed the recovered planes on %d of %d robots (their bias at worst %.3f px, "
      "median %.3f px)\n",
      checks_passed, robots, recovered_bias.Worst(), recovered_bias.Median());
  through_measured.Print("the measured camera");
  through_truth.Print("the simulator's camera");
  std::printf("wall time of a round (kivrun, calculations included): median %.2f s, worst %.2f s\n",
              seconds[seconds.size() / 2], seconds.back());
  std::printf("%s\n", within ? "every error with a goal within it" : "NOT within the goals");
  return within ? 0 : 1;
}
