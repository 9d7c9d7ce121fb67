// kivrun --pictures, run as a program: a round on a folder of recorded
// pictures and its replay, a factory round played again on the folder it
// wrote, what it says when a picture is missing or cannot be used. The
// camera's reading of the folder, case by case, is picture_folder_test's;
// the folders --pictures refuses are kivrun_command_line_test's.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/program_run.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ProgramRun;

class KivrunPicturesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kivrun_pictures_test_XXXXXX";
    dir_ = mkdtemp(name);
    fs::create_directories(dir_ / "pictures");
  }
  void TearDown() override { fs::remove_all(dir_); }

  // kivrun in `cwd` (default: the test's folder), with a private /tmp.
  ProgramRun Kivrun(const std::string& args, const std::string& cwd = "") {
    return testsupport::RunIn(cwd.empty() ? dir_ : fs::path(cwd), KIVRUN " --private-tmp " + args,
                              dir_);
  }

  // A picture of the example folder (the simulator's, one per distance).
  void CopyExample(const std::string& distance) {
    fs::copy(fs::path(LASERCALI_SOURCE_DIR) / "scenarios" / "pictures" / distance,
             dir_ / "pictures" / distance, fs::copy_options::recursive);
  }

  // The factory tool's request at `distance`, repeated until acknowledged.
  void Scenario(int distance) {
    std::ofstream(dir_ / "s.json")
        << R"({"config_file": ")" LASERCALI_SOURCE_DIR R"(/scenarios/lasercali.json", "steps": [
      {"camera": {"distance": )"
        << distance << R"(}},
      {"repeat": {"send": "CAMERACALI", "fields": {"distance": )"
        << distance
        << R"(}}, "until": {"topic": "CAMERACALIRES", "fields": {"kind": 2, "distance": )"
        << distance << R"(}}, "every_ticks": 10, "limit": 20}]})";
  }

  static std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
  }

  fs::path dir_;
};

// From the root folder, with the machine's /tmp out of sight: only --pictures
// keeps the test's folder in sight of the private /tmp, and a replay keeps
// the folder it recorded.
TEST_F(KivrunPicturesTest, ARoundOnRecordedPicturesIsAcceptedLoggedAndReplayed) {
  CopyExample("15");
  Scenario(15);
  const std::string log = (dir_ / "log.jsonl").string();
  ProgramRun run = Kivrun("--pictures " + (dir_ / "pictures").string() + " --log " + log + " " +
                              (dir_ / "s.json").string(),
                          "/");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  ASSERT_EQ(run.status, 0) << Joined(run.err);
  EXPECT_NE(testsupport::ReadFile(log).find(
                R"({"t":0,"event":"camera_settings","step":0,"settings":{"pictures":")" +
                (dir_ / "pictures").string() + "\"}}"),
            std::string::npos);
  const std::size_t events = testsupport::Lines(testsupport::ReadFile(log)).size();
  run = Kivrun("--replay " + log + " --log " + (dir_ / "again.jsonl").string(), "/");
  EXPECT_EQ(run.status, 0) << Joined(run.err);
  EXPECT_NE(Joined(run.err).find("kivrun: the replay of " + log + " gave the same " +
                                 std::to_string(events) + " events"),
            std::string::npos)
      << Joined(run.err);
  EXPECT_EQ(testsupport::ReadFile(dir_ / "again.jsonl"), testsupport::ReadFile(log));

  // The replay shows the recorded folder, not the scene: without it the
  // frames are refused and the events differ.
  fs::remove_all(dir_ / "pictures");
  fs::create_directories(dir_ / "pictures" / "20");
  run = Kivrun("--replay " + log + " --log " + (dir_ / "again.jsonl").string(), "/");
  EXPECT_EQ(run.status, 5) << Joined(run.err);
}

// The answers of the calculation nodes in an event log, in order.
std::vector<std::string> Answers(const std::string& log) {
  std::vector<std::string> answers;
  for (const std::string& line : testsupport::Lines(log)) {
    if (line.find(R"("event":"answer")") != std::string::npos) answers.push_back(line);
  }
  return answers;
}

TEST_F(KivrunPicturesTest, TheFolderAFactoryRoundWrotePlaysThatRoundAgainToTheSamePlanes) {
  const std::string round = LASERCALI_SOURCE_DIR "/scenarios/factory_compute_round.json";
  const std::string config = LASERCALI_SOURCE_DIR "/scenarios/lasercali.json";
  ProgramRun run =
      Kivrun("--config " + config + " --pictures-out written --log first.jsonl " + round);
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  ASSERT_EQ(run.status, 0) << Joined(run.err);
  // The distance check's pictures are all the folder has for its wall at 27.5 cm.
  ASSERT_TRUE(fs::is_regular_file(dir_ / "written" / "pic" / "dis_left.bmp"));
  ASSERT_TRUE(fs::is_regular_file(dir_ / "written" / "pic" / "dis_right.bmp"));

  run = Kivrun("--config " + config + " --pictures written --log again.jsonl " + round);
  EXPECT_EQ(run.status, 0) << Joined(run.err);
  const std::vector<std::string> first = Answers(testsupport::ReadFile(dir_ / "first.jsonl"));
  const std::vector<std::string> again = Answers(testsupport::ReadFile(dir_ / "again.jsonl"));
  ASSERT_EQ(first.size(), 3u);  // the plane, the check and the distance node
  EXPECT_NE(first[0].find(R"("node":"plane")"), std::string::npos) << first[0];
  EXPECT_NE(first[2].find(R"("node":"distance")"), std::string::npos) << first[2];
  EXPECT_EQ(again, first);
}

TEST_F(KivrunPicturesTest, AMissingDistanceIsNamedWithTheFileItLookedFor) {
  CopyExample("10");
  Scenario(15);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 4);
  EXPECT_NE(Joined(run.err).find("camera calls failed, the last GetImageFrame: no left picture "
                                 "for distance 15: '" +
                                 (dir_ / "pictures" / "15" / "left.bmp").string() +
                                 "' or '.png' is missing"),
            std::string::npos)
      << Joined(run.err);
}

TEST_F(KivrunPicturesTest, AFileThatIsNoPictureIsNamed) {
  fs::create_directories(dir_ / "pictures" / "15");
  std::ofstream(dir_ / "pictures" / "15" / "left.bmp") << "not a picture";
  Scenario(15);
  const ProgramRun run = Kivrun("--pictures pictures --log log.jsonl s.json");
  if (run.status == 6) GTEST_SKIP() << "no private /tmp here";
  EXPECT_EQ(run.status, 4);
  EXPECT_NE(Joined(run.err).find("'" + (dir_ / "pictures" / "15" / "left.bmp").string() +
                                 "' is not a BMP or PNG picture"),
            std::string::npos)
      << Joined(run.err);
}

}  // namespace
