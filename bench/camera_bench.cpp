// camera_bench: how long the camera simulator takes to draw a frame, by
// renderer and preset, and how long a whole factory round takes on the
// robot's camera (docs/benchmarks.md).
//
// A frame is drawn once per setting and laser field and then kept, so the
// figures that matter are one drawing of a frame: BM_Frame draws the same
// scene again and again (what is kept from frame to frame, the speckle of
// a seed and each pixel's direction for a camera, is made once), BM_FirstFrame
// draws each frame with a new seed, so its speckle is made too.
// BM_FactoryRound plays scenarios/factory_plane_round*.json, BM_RobotChain
// scenarios/robot_chain_round.json (the whole calibration chain) with kivrun,
// whose node runs in a private /tmp of its own (--private-tmp); the wall
// time includes starting kivrun.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/physical.h"
#include "platform/sunxi_cam/scene.h"

namespace {

namespace sim = sunxi_cam::sim;

void Apply(const std::string& json) {
  rapidjson::Document settings;
  settings.Parse(json.c_str());
  sim::Configure(settings);
}

// Draws one frame of the current scene for `lasers` at the node's setting
// for 30 cm (1900 / 32), as the camera would.
void Draw(unsigned lasers, std::vector<uint8_t>* out) {
  const sim::Scene& scene = sim::GetScene();
  if (scene.renderer == sim::Renderer::kPhysical) {
    sim::RenderPhysical(scene, lasers, 1900, 32, out->data());
  } else {
    sim::RenderLuminance(scene, lasers, 1.0, out->data());
  }
}

const char* const kPresets[] = {"ideal", "robot", "harsh"};

void BM_Frame(benchmark::State& state) {
  const char* preset = kPresets[state.range(0)];
  const unsigned lasers = static_cast<unsigned>(state.range(1));
  sim::Reset();
  Apply(std::string(R"({"distance": 30, "preset": ")") + preset + "\"}");
  std::vector<uint8_t> frame(static_cast<std::size_t>(sim::kWidth) * sim::kHeight);
  Draw(lasers, &frame);  // what is kept from frame to frame
  for (auto _ : state) {
    Draw(lasers, &frame);
    benchmark::DoNotOptimize(frame.data());
  }
  state.SetLabel(std::string(preset) + (lasers == 1 ? ", left laser" : ", both lasers"));
}
BENCHMARK(BM_Frame)->Args({0, 1})->Args({1, 1})->Args({1, 9})->Args({2, 1})->Unit(
    benchmark::kMillisecond);

void BM_FirstFrame(benchmark::State& state) {
  const char* preset = kPresets[state.range(0)];
  sim::Reset();
  Apply(std::string(R"({"distance": 30, "preset": ")") + preset + "\"}");
  std::vector<uint8_t> frame(static_cast<std::size_t>(sim::kWidth) * sim::kHeight);
  uint64_t seed = 1000;
  for (auto _ : state) {
    state.PauseTiming();
    Apply(R"({"scene": {"background": {"seed": )" + std::to_string(++seed) + "}}}");
    state.ResumeTiming();
    Draw(1, &frame);
    benchmark::DoNotOptimize(frame.data());
  }
  state.SetLabel(std::string(preset) + ", left laser, a new seed each frame");
}
BENCHMARK(BM_FirstFrame)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

void BM_Chessboard(benchmark::State& state) {
  sim::Reset();
  Apply(R"({"preset": "robot", "scene": {"board": {"on": true, "z": 40, "yaw": 40}}})");
  std::vector<uint8_t> frame(static_cast<std::size_t>(sim::kWidth) * sim::kHeight);
  Draw(1, &frame);
  for (auto _ : state) {
    Draw(1, &frame);
    benchmark::DoNotOptimize(frame.data());
  }
  state.SetLabel("robot, chessboard view 2");
}
BENCHMARK(BM_Chessboard)->Unit(benchmark::kMillisecond);

// Plays a scenario with kivrun, the node in a private /tmp of its own (the
// one place to change for another way of keeping the machine's /tmp out of
// reach); false when kivrun did not end the round with 0.
bool PlayRound(const std::string& scenario) {
  const std::string command = std::string("cd '" LASERCALI_SOURCE_DIR "/scenarios' && ") +
                              KIVRUN_COMMAND + " --private-tmp --log /dev/null " + scenario +
                              " >/dev/null 2>&1";
  const int status = std::system(command.c_str());
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void BM_FactoryRound(benchmark::State& state) {
  const std::string scenario =
      state.range(0) == 0 ? "factory_plane_round.json" : "factory_plane_round_robot.json";
  for (auto _ : state) {
    if (!PlayRound(scenario)) {
      state.SkipWithError(("kivrun did not play " + scenario + " to its end").c_str());
      break;
    }
  }
  state.SetLabel(scenario + ", kivrun started each time");
}
BENCHMARK(BM_FactoryRound)
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

// The whole calibration from the pictures alone on the robot's camera
// (scenarios/robot_chain_round.json): sixteen chessboard views and the
// camera's calibration, the factory plane round through the measured
// camera, the check and the distance check, with kivrun started each time.
void BM_RobotChain(benchmark::State& state) {
  for (auto _ : state) {
    if (!PlayRound("robot_chain_round.json")) {
      state.SkipWithError("kivrun did not play robot_chain_round.json to its end");
      break;
    }
  }
  state.SetLabel("robot_chain_round.json, kivrun started each time");
}
BENCHMARK(BM_RobotChain)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
