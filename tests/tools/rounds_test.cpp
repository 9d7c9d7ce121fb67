// Whole calibration rounds through kivrun: the factory plane round writes
// exactly its pictures and ends with the calculation nodes' values, and a
// round on the wall clock runs to its end.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tools/calc/picture_files.h"
#include "tools/kivrun/scenario.h"

namespace {

namespace fs = std::filesystem;

const std::string kScenarios = std::string(LASERCALI_SOURCE_DIR) + "/scenarios";

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct KivrunRun {
  int status = -1;
  std::vector<rapidjson::Document> events;
  std::string err;
};

// Runs kivrun with `args` on a robot whose picture folders hold no pictures.
// The node writes into the test's own /tmp (--machine-tmp: this binary's
// private /tmp stands for the machine's), where the test looks at them.
KivrunRun Kivrun(const std::string& args) {
  for (const char* folder : {"/tmp/left", "/tmp/right", "/tmp/pic"}) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored)) {
      if (entry.path().extension() == ".bmp") fs::remove(entry.path());
    }
  }
  fs::remove("/tmp/LL.bmp");
  fs::remove("/tmp/RR.bmp");

  char dir_pattern[] = "/tmp/rounds_test.XXXXXX";
  const fs::path dir = mkdtemp(dir_pattern);
  const std::string command = std::string(KIVRUN) + " --machine-tmp --log " +
                              (dir / "log.jsonl").string() + " " + args + " 2>" +
                              (dir / "err.txt").string();
  const int raw = std::system(command.c_str());
  KivrunRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.err = ReadFile(dir / "err.txt");
  std::istringstream lines(ReadFile(dir / "log.jsonl"));
  for (std::string line; std::getline(lines, line);) {
    run.events.emplace_back();
    run.events.back().Parse(line.c_str());
    EXPECT_FALSE(run.events.back().HasParseError()) << line;
  }
  fs::remove_all(dir);
  return run;
}

std::vector<int> Ints(const rapidjson::Value& list) {
  std::vector<int> values;
  for (const auto& v : list.GetArray()) values.push_back(v.GetInt());
  return values;
}

// The answer fields a responder step of the scenario gives its node.
rapidjson::Document AnswerOf(const kivrun::Scenario& scenario, const std::string& node) {
  for (const auto& step : scenario.steps) {
    if (step.kind == kivrun::Step::Kind::kResponder && step.responder->node == node) {
      return step.responder->answer.Parse();
    }
  }
  throw std::runtime_error("the scenario sets up no " + node + " node");
}

class FactoryRoundTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char pattern[] = "/tmp/rounds_report.XXXXXX";
    report_ = new fs::path(mkdtemp(pattern));
    run_ = new KivrunRun(Kivrun("--progress --report " + (*report_ / "report").string() + " " +
                                kScenarios + "/factory_plane_round.json"));
  }
  static void TearDownTestSuite() {
    fs::remove_all(*report_);
    delete report_;
    delete run_;
  }
  static KivrunRun* run_;
  static fs::path* report_;
};
KivrunRun* FactoryRoundTest::run_ = nullptr;
fs::path* FactoryRoundTest::report_ = nullptr;

TEST_F(FactoryRoundTest, RunsToItsEnd) {
  EXPECT_EQ(run_->status, 0) << run_->err;
  ASSERT_FALSE(run_->events.empty());
  EXPECT_STREQ(run_->events.back()["event"].GetString(), "end");
  EXPECT_EQ(run_->events.back()["exit"].GetInt(), 0);
}

TEST_F(FactoryRoundTest, WritesExactlyTheLeftAndRightPictureOfEveryDistance) {
  const auto config = kivrun::ReadJsonFile(kScenarios + "/lasercali.json");
  const int delt = (*config)["delt_factory"].GetInt();
  std::multiset<std::string> expected;
  for (const char* side : {"left", "right"}) {
    for (int d = 5; d <= 45; d += 5) {
      expected.insert("/tmp/" + std::string(side) + "/" + std::to_string(d * 100 + delt) + ".bmp");
    }
  }
  ASSERT_EQ(expected.size(), 18u);

  std::multiset<std::string> written;
  for (const auto& e : run_->events) {
    if (std::string(e["event"].GetString()) == "file") written.insert(e["path"].GetString());
  }
  EXPECT_EQ(written, expected);  // each once, nothing else

  std::set<std::string> on_disk;
  for (const char* folder : {"/tmp/left", "/tmp/right", "/tmp/pic"}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().extension() == ".bmp") on_disk.insert(entry.path().string());
    }
  }
  EXPECT_EQ(on_disk, std::set<std::string>(expected.begin(), expected.end()));
  for (const auto& path : on_disk) EXPECT_EQ(calc::PictureProblem(path), "") << path;
}

TEST_F(FactoryRoundTest, TheFinalKind4ResultCarriesThePlaneAndCheckNodesValues) {
  const kivrun::Scenario scenario = kivrun::LoadScenario(kScenarios + "/factory_plane_round.json");
  const rapidjson::Document plane = AnswerOf(scenario, "plane");
  const rapidjson::Document check = AnswerOf(scenario, "check");

  const rapidjson::Value* last = nullptr;
  for (const auto& e : run_->events) {
    if (std::string(e["event"].GetString()) == "publish" &&
        std::string(e["topic"].GetString()) == "CAMERACALIRES" &&
        e["fields"]["kind"].GetInt() == 4) {
      last = &e;
    }
  }
  ASSERT_NE(last, nullptr) << "no kind-4 result on CAMERACALIRES";
  const rapidjson::Value& fields = (*last)["fields"];
  EXPECT_EQ(Ints(fields["plane_data"]), Ints(plane["plane_data"]));
  EXPECT_EQ(fields["plane_result"].GetInt(), 1);
  EXPECT_EQ(Ints(fields["check_data"]), Ints(check["check_data"]));
  EXPECT_EQ(fields["check_result"].GetInt(), check["check_result"].GetInt());
  EXPECT_STREQ((*last)["tag"].GetString(), "src/cameralasercali_343");
}

TEST_F(FactoryRoundTest, ShowsEveryAcceptedDistanceAndSumsTheRoundUp) {
  for (int d = 5; d <= 45; d += 5) {
    EXPECT_NE(run_->err.find("] distance " + std::to_string(d) + " accepted: "), std::string::npos)
        << run_->err;
  }
  EXPECT_NE(run_->err.find("== the round ran to its end"), std::string::npos);
  EXPECT_NE(run_->err.find("distances accepted:             9: 5 10 15 20 25 30 35 40 45\n"),
            std::string::npos);
  EXPECT_NE(run_->err.find("pictures written:               18 files, 18 writes\n"),
            std::string::npos);
  EXPECT_NE(
      run_->err.find("requests to calculation nodes:  2: LASER_CALIBR_REQ 1, CAMERACALICHECK 1\n"),
      std::string::npos);
  EXPECT_NE(run_->err.find("results relayed:                1: CAMERACALIRES plane and check 1\n"),
            std::string::npos);
}

TEST_F(FactoryRoundTest, TheReportShowsEveryPicture) {
  const int delt = (*kivrun::ReadJsonFile(kScenarios + "/lasercali.json"))["delt_factory"].GetInt();
  const std::string summary = ReadFile(*report_ / "report" / "report.md");
  EXPECT_TRUE(fs::exists(*report_ / "report" / "pictures.png"));
  for (const char* side : {"left", "right"}) {
    for (int d = 5; d <= 45; d += 5) {
      EXPECT_NE(summary.find("`/tmp/" + std::string(side) + "/" + std::to_string(d * 100 + delt) +
                             ".bmp` | factory distance " + std::to_string(d) + " |"),
                std::string::npos)
          << side << " " << d;
    }
  }
}

// The answer event of `node` in a run.
const rapidjson::Value* AnswerEvent(const KivrunRun& run, const std::string& node) {
  for (const auto& e : run.events) {
    if (std::string(e["event"].GetString()) == "answer" && node == e["node"].GetString()) return &e;
  }
  return nullptr;
}

// A robot whose left laser leans 2 degrees: the computing plane node finds
// the lean in the pictures the node stored, within the goal of 0.05 degrees
// and 0.5 mm, the check passes, and the distance check measures the wall
// within 0.5 mm with the planes as sent.
TEST(ComputingRoundTest, TheMisalignedLaserIsFoundInTheStoredPictures) {
  const KivrunRun run = Kivrun(kScenarios + "/misaligned_laser_round.json");
  EXPECT_EQ(run.status, 0) << run.err;
  const rapidjson::Value* plane = AnswerEvent(run, "plane");
  ASSERT_NE(plane, nullptr);
  EXPECT_STREQ((*plane)["action"].GetString(), "answer");
  EXPECT_EQ((*plane)["truth"]["left"]["roll"].GetDouble(), 2.0);
  EXPECT_NEAR((*plane)["lasers"]["left"]["roll"].GetDouble(), 2.0, 0.05);
  EXPECT_NEAR((*plane)["lasers"]["right"]["roll"].GetDouble(), 0.0, 0.05);
  const int sent_roll = (*plane)["fields"]["plane_data"][1].GetInt() - 32768;  // thousandths
  EXPECT_NEAR(sent_roll, 2000, 50);
  for (const char* side : {"left", "right"}) {
    EXPECT_LT((*plane)["errors"][side]["normal_deg"].GetDouble(), 0.05) << side;
    EXPECT_LT(std::abs((*plane)["errors"][side]["offset_mm"].GetDouble()), 0.5) << side;
  }
  const rapidjson::Value* check = AnswerEvent(run, "check");
  ASSERT_NE(check, nullptr);
  EXPECT_EQ((*check)["fields"]["check_result"].GetInt(), 1);
  const rapidjson::Value* distance = AnswerEvent(run, "distance");
  ASSERT_NE(distance, nullptr);
  EXPECT_STREQ((*distance)["planes"].GetString(), "sent");
  EXPECT_EQ((*distance)["fields"]["status"].GetInt(), 0);
  EXPECT_EQ((*distance)["truth"]["distance_mm"].GetDouble(), 275.0);
  EXPECT_LT(std::abs((*distance)["errors"]["distance_mm"].GetDouble()), 0.5);
}

// The app round: the node cuts each stripe picture on the spot and keeps
// the wall part; the computing plane node fits both planes to those walls
// alone, and the check passes.
TEST(ComputingRoundTest, TheAppsCutPicturesGiveBothPlanes) {
  const KivrunRun run = Kivrun(kScenarios + "/app_compute_round.json");
  EXPECT_EQ(run.status, 0) << run.err;
  const rapidjson::Value* plane = AnswerEvent(run, "plane");
  ASSERT_NE(plane, nullptr);
  EXPECT_EQ((*plane)["fields"]["result"].GetInt(), 1);
  for (const char* side : {"left", "right"}) {
    EXPECT_EQ((*plane)["lasers"][side]["floor_points"].GetInt(), 0) << side;
    EXPECT_GT((*plane)["lasers"][side]["wall_points"].GetInt(), 300) << side;
    EXPECT_LT((*plane)["errors"][side]["normal_deg"].GetDouble(), 0.05) << side;
    EXPECT_LT(std::abs((*plane)["errors"][side]["offset_mm"].GetDouble()), 0.5) << side;
  }
  const rapidjson::Value* check = AnswerEvent(run, "check");
  ASSERT_NE(check, nullptr);
  EXPECT_EQ((*check)["fields"]["check_result"].GetInt(), 1);
  // The app's kind-4 state text ends with the plane and check results.
  std::string text;
  for (const auto& e : run.events) {
    if (std::string(e["event"].GetString()) == "publish" &&
        std::string(e["topic"].GetString()) == "laser_state" &&
        std::string(e["fields"]["text"].GetString()).rfind("4;", 0) == 0) {
      text = e["fields"]["text"].GetString();
    }
  }
  ASSERT_FALSE(text.empty()) << "no kind-4 state text";
  EXPECT_EQ(text.substr(text.size() - 4), ";1;1") << text;
}

// The summary and the report show each laser's recovered plane beside the
// true one with the errors, the check and the distance check.
TEST(ComputingRoundTest, TheSummaryAndTheReportShowTheTrueAndTheRecoveredPlanes) {
  char pattern[] = "/tmp/rounds_report.XXXXXX";
  const fs::path dir = mkdtemp(pattern);
  const KivrunRun run = Kivrun("--progress --report " + (dir / "report").string() + " " +
                               kScenarios + "/factory_compute_round.json");
  const std::string report = ReadFile(dir / "report" / "report.md");
  fs::remove_all(dir);
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* side : {"left", "right"}) {
    const std::string truth = side[0] == 'l' ? "true -2.0000, 0.0000 deg, 21.9866 mm; error "
                                             : "true 2.0000, 0.0000 deg, -21.9866 mm; error ";
    const std::string row = std::string(side) + " laser plane:";
    const std::size_t at = run.err.find(row);
    ASSERT_NE(at, std::string::npos) << run.err;
    const std::string line = run.err.substr(at, run.err.find('\n', at) - at);
    EXPECT_NE(line.find("yaw "), std::string::npos) << line;
    EXPECT_NE(line.find(truth), std::string::npos) << line;
    EXPECT_NE(line.find(" deg (normal), "), std::string::npos) << line;
    EXPECT_NE(report.find("| " + std::string(side) + " laser plane | yaw "), std::string::npos)
        << report;
  }
  EXPECT_NE(run.err.find("plane check:                    passed: residuals left "),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find("with the sent planes; true 275.0000 mm; error "), std::string::npos)
      << run.err;
  EXPECT_NE(report.find("| distance check | "), std::string::npos) << report;
}

// A computing node that cannot answer says why in the summary.
TEST(ComputingRoundTest, ACalculationThatFailsIsSummedUpWithItsReason) {
  char pattern[] = "/tmp/rounds_failure.XXXXXX";
  const fs::path dir = mkdtemp(pattern);
  std::ofstream(dir / "failure.json")
      << R"({"config_file": ")" << kScenarios << R"(/lasercali.json", "steps": [
           {"responder": "plane", "compute": true},
           {"send": "LASER_CALIBR_REQ", "record": "LaserClibrMsg", "fields": {"kind": 1}},
           {"ticks": 2}]})";
  const KivrunRun run = Kivrun("--progress " + (dir / "failure.json").string());
  fs::remove_all(dir);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("plane calibration:              refused: /tmp/left/560.bmp: missing "
                         "(and 17 more)\n"),
            std::string::npos)
      << run.err;
  EXPECT_EQ(run.err.find("left laser plane:"), std::string::npos) << run.err;
}

TEST(RealtimeRoundTest, OneDistanceOnTheWallClockRunsToItsEnd) {
  const auto start = std::chrono::steady_clock::now();
  const KivrunRun run = Kivrun("--realtime " + std::string(LASERCALI_SOURCE_DIR) +
                               "/tests/scenarios/realtime_one_distance.json");
  const double wall_us =
      std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(run.status, 0) << run.err;
  const rapidjson::Value* matched = nullptr;
  for (const auto& e : run.events) {
    if (std::string(e["event"].GetString()) == "matched") matched = &e;
  }
  ASSERT_NE(matched, nullptr) << "the distance was never accepted";
  EXPECT_STREQ((*matched)["label"].GetString(), "distance 30 accepted");
  // The main loop's clock followed the wall clock: the simulated time the
  // round took has passed for real too.
  EXPECT_GE(wall_us, static_cast<double>((*matched)["t"].GetInt64()));
}

// kivrun with --report on a shipped scenario: the report's Markdown.
std::string ReportOf(const std::string& scenario, KivrunRun* run) {
  char pattern[] = "/tmp/rounds_report.XXXXXX";
  const fs::path dir = mkdtemp(pattern);
  *run = Kivrun("--report " + (dir / "report").string() + " " + kScenarios + "/" + scenario);
  const std::string report = ReadFile(dir / "report" / "report.md");
  fs::remove_all(dir);
  return report;
}

// The row of the report's picture table that starts with `start`.
std::string Row(const std::string& report, const std::string& start) {
  const std::size_t at = report.find("\n" + start);
  if (at == std::string::npos) return "";
  return report.substr(at + 1, report.find('\n', at + 1) - at - 1);
}

// Every version of the stripe pictures is on the sheet: the two-stripe
// refusal at distance 10, which the no-cut-line picture at 20 overwrote.
TEST(RoundReportTest, TheTwoStripeRefusalOfTheAppCutFailureIsShown) {
  KivrunRun run;
  const std::string report = ReportOf("failure_app_cut.json", &run);
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* picture : {"LL", "RR"}) {
    const std::string first =
        Row(report, std::string("| ") + (picture[0] == 'L' ? "1" : "3") + " | `/tmp/" + picture +
                        ".bmp` | app distance 10, version 1, reply 2;257 |");
    EXPECT_NE(first.find("two stripes at row"), std::string::npos) << report;
    const std::string second =
        Row(report, std::string("| ") + (picture[0] == 'L' ? "2" : "4") + " | `/tmp/" + picture +
                        ".bmp` | app distance 20, version 2, reply 2;258 |");
    EXPECT_NE(second.find("no cut line"), std::string::npos) << report;
  }
  EXPECT_NE(report.find("| 6 | `/tmp/pic/R.bmp` |"), std::string::npos) << report;
  EXPECT_EQ(report.find("| 7 |"), std::string::npos) << report;
}

// A responder that refused lists the pictures it found missing, as the
// event log's answer event does.
TEST(RoundReportTest, TheProblemsOfARefusingNodeAreListed) {
  KivrunRun run;
  const std::string report = ReportOf("failure_plane.json", &run);
  std::string problems;
  for (const auto& e : run.events) {
    if (std::string(e["event"].GetString()) != "answer" || !e.HasMember("problems")) continue;
    for (const auto& p : e["problems"].GetArray()) {
      problems += "- " + std::string(e["node"].GetString()) + " refused: " + p.GetString() + "\n";
    }
  }
  ASSERT_FALSE(problems.empty()) << "no refusal in failure_plane.json";
  EXPECT_NE(report.find("## What the calculation nodes refused or failed on\n\n" + problems),
            std::string::npos)
      << report;
  EXPECT_NE(report.find("- plane refused: /tmp/left/560.bmp: missing\n"), std::string::npos);
}

}  // namespace
