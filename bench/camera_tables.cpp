// camera_tables: the tables of docs/camera-sim.md on the simulated cameras,
// as Markdown on standard output.
//
// 1. Exposure: for each distance of the factory and app rounds and the
//    distance check's wall, each laser's stripe through the "robot" (and
//    "harsh") preset's sensor at every exposure and gain the node's tables
//    use: the share of the stripe's rows that are saturated and the median
//    row's contrast above the background (tests/support/stripe_exposure.h),
//    the node's own choice marked, and whether it passes the limits of
//    tests/platform/exposure_tables_test.cpp.
// 2. The stripe cut: for each preset and app distance, over many seeds,
//    each laser's picture at the node's app setting through the node's own
//    stripe cut (src/stripecut.h): how often it cuts, and how many stripe
//    points it finds.
//
// usage: camera_tables [SEEDS]   (default 50 seeds; about a minute in a
// Release build)
//        camera_tables --smoke   (the smallest run that still goes through
// every code path once: in the exposure tables one factory and one app
// distance beside the two distance checks, in the cut table one app
// distance per preset, one seed; for ctest's run, its figures mean little)
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "platform/sunxi_cam/scene.h"
#include "src/caligetpic.h"
#include "src/stripecut.h"
#include "tests/support/stripe_exposure.h"

namespace {

namespace sim = sunxi_cam::sim;

constexpr double kMaxSaturatedShare = 1.0 / 3.0;  // as exposure_tables_test
constexpr double kMinMedianContrast = 40;

void Apply(const std::string& json) {
  rapidjson::Document settings;
  settings.Parse(json.c_str());
  sim::Configure(settings);
}

struct Choice {
  int exposure, gain;
};

// The node's own choice for a distance code, factory or app; its console
// line swallowed.
Choice NodeChoice(uint16_t code, bool app) {
  std::ostringstream swallowed;
  std::streambuf* out = std::cout.rdbuf(swallowed.rdbuf());
  kivplugcali::APP_USE = app ? 1 : 0;
  kivplugcali::distance_curr = code;
  kivplugcali::KivNode_caligetpic capture;
  capture.param_choose();
  std::cout.rdbuf(out);
  return {kivplugcali::exposure_value, kivplugcali::gain_value};
}

// The smallest run (--smoke): one distance of each kind instead of all.
struct Extent {
  int seeds = 50;
  bool smoke = false;
};

void ExposureTable(const char* preset, bool smoke) {
  const Choice settings[] = {{600, 4}, {1200, 4}, {1900, 4}, {1900, 32}, {1900, 48}};
  std::printf("\n#### %s\n\n| distance | node's choice |", preset);
  for (const Choice& s : settings) std::printf(" %d/%d |", s.exposure, s.gain);
  std::printf("\n|---|---|");
  for (std::size_t i = 0; i < sizeof settings / sizeof settings[0]; ++i) std::printf("---|");
  std::printf("\n");
  struct Row {
    const char* name;
    double distance;
    uint16_t code;
    bool app;
  };
  std::vector<Row> rows;
  static char names[20][40];
  int n = 0;
  for (int d = smoke ? 25 : 5; d <= (smoke ? 25 : 45); d += 5) {
    std::snprintf(names[n], sizeof names[n], "factory %d cm", d);
    rows.push_back({names[n++], static_cast<double>(d), static_cast<uint16_t>(d), false});
  }
  rows.push_back({"factory distance check, 27.5 cm", 27.5, kivplugcali::dis_DistanceCheck, false});
  for (int d : smoke ? std::vector<int>{20} : std::vector<int>{10, 20, 30}) {
    std::snprintf(names[n], sizeof names[n], "app %d cm", d);
    rows.push_back({names[n++], static_cast<double>(d), static_cast<uint16_t>(d), true});
  }
  rows.push_back({"app distance check, 27.5 cm", 27.5, kivplugcali::dis_DistanceCheck, true});
  for (const Row& row : rows) {
    const Choice node = NodeChoice(row.code, row.app);
    char distance[32];
    std::snprintf(distance, sizeof distance, "%g", row.distance);
    Apply(std::string(R"({"preset": ")") + preset + R"(", "distance": )" + distance + "}");
    std::printf("| %s | %d/%d |", row.name, node.exposure, node.gain);
    for (const Choice& s : settings) {
      // The worse of the two lasers.
      double saturated = 0, contrast = 1e9;
      for (unsigned laser : {1u, 8u}) {
        const testsupport::StripeExposure m =
            testsupport::MeasureStripe(sim::GetScene(), laser, s.exposure, s.gain);
        saturated = std::max(saturated, m.saturated_share());
        contrast = std::min(contrast, m.median_contrast);
      }
      const bool pass = saturated <= kMaxSaturatedShare && contrast >= kMinMedianContrast;
      const bool chosen = s.exposure == node.exposure && s.gain == node.gain;
      std::printf(" %s%.0f %% / %.0f%s%s |", chosen ? "**" : "", 100 * saturated, contrast,
                  pass ? "" : (saturated > kMaxSaturatedShare ? " saturated" : " dim"),
                  chosen ? "**" : "");
    }
    std::printf("\n");
  }
}

void CutTable(int seeds, bool smoke) {
  std::printf(
      "\n| preset | app distance | setting | cut | two stripes | too few points | no cut line | "
      "cut refused | stripe points (min / median / max) "
      "|\n|---|---|---|---|---|---|---|---|---|\n");
  for (const char* preset : {"ideal", "robot", "harsh"}) {
    for (int d : smoke ? std::vector<int>{20} : std::vector<int>{10, 20, 30}) {
      const Choice node = NodeChoice(static_cast<uint16_t>(d), true);
      std::map<kivplugcali::StripeCutStop, int> stops;
      std::vector<int> points;
      kivplugcali::StripeCut cut;
      cv::Mat picture(480, 640, CV_8UC1);
      for (int seed = 1; seed <= seeds; ++seed) {
        Apply(std::string(R"({"preset": ")") + preset + R"(", "distance": )" + std::to_string(d) +
              R"(, "scene": {"background": {"seed": )" + std::to_string(seed) + "}}}");
        for (unsigned laser : {1u, 8u}) {
          const sim::Scene& scene = sim::GetScene();
          if (scene.renderer == sim::Renderer::kPhysical) {
            sim::RenderPhysical(scene, laser, node.exposure, node.gain, picture.data);
          } else {
            sim::RenderLuminance(scene, laser, 1.0, picture.data);
          }
          kivplugcali::CutStripe(picture, static_cast<int>(laser), &cut);
          ++stops[cut.stop];
          points.push_back(static_cast<int>(cut.points.size()));
        }
      }
      std::sort(points.begin(), points.end());
      using kivplugcali::StripeCutStop;
      std::printf("| %s | %d cm | %d/%d | %d | %d | %d | %d | %d | %d / %d / %d |\n", preset, d,
                  node.exposure, node.gain, stops[StripeCutStop::kCut],
                  stops[StripeCutStop::kTwoStripes], stops[StripeCutStop::kTooFewPoints],
                  stops[StripeCutStop::kNoCutLine], stops[StripeCutStop::kCutRefused],
                  points.front(), points[points.size() / 2], points.back());
    }
  }
  std::printf("\n%d seeds, both lasers: %d pictures a row.\n", seeds, 2 * seeds);
}

}  // namespace

int main(int argc, char** argv) {
  Extent extent;
  bool seeds_given = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::printf(
          "usage: camera_tables [SEEDS]   the tables of docs/camera-sim.md as Markdown\n"
          "                               (SEEDS pictures per laser and app distance in the\n"
          "                               stripe cut table; default 50)\n"
          "       camera_tables --smoke   the smallest run: one factory and one app distance\n"
          "                               beside the distance checks, one seed\n");
      return 0;
    }
    if (arg == "--smoke") {
      extent.smoke = true;
      if (!seeds_given) extent.seeds = 1;
    } else if (!arg.empty() && arg[0] == '-') {
      std::fprintf(stderr,
                   "camera_tables: unknown option '%s'\nTry 'camera_tables --help' for usage.\n",
                   arg.c_str());
      return 2;
    } else {
      extent.seeds = std::max(1, std::atoi(arg.c_str()));
      seeds_given = true;
    }
  }
  std::printf("### Exposure: saturated rows / median contrast (worse laser)\n");
  ExposureTable("robot", extent.smoke);
  ExposureTable("harsh", extent.smoke);
  std::printf("\n### The stripe cut at the app's settings\n");
  CutTable(extent.seeds, extent.smoke);
  return 0;
}
