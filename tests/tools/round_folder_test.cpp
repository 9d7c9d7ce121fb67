// The folder a terminal round writes into: named after the scenario, an
// earlier round of kivrun's replaced, anybody else's files left alone.
#include "tools/kivrun/round_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using testsupport::ReadFile;
using testsupport::TempFolder;

constexpr char kLogLine[] = "{\"t\":0,\"event\":\"load\",\"plugin\":\"liblasercali.so\"}\n";

void Write(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// A round kivrun wrote into `folder`.
void WriteRound(const std::string& folder) {
  fs::create_directories(folder + "/pictures/left");
  Write(folder + "/events.jsonl", kLogLine);
  Write(folder + "/report.html", "<!doctype html>");
  Write(folder + "/report.md", "# round");
  Write(folder + "/pictures.png", "png");
  Write(folder + "/pictures/left/560.bmp", "bmp");
}

TEST(RoundFolderTest, StemIsTheScenarioFileName) {
  EXPECT_EQ(kivrun::RoundFolderStem("scenarios/factory_compute_round.json"),
            "factory_compute_round");
  EXPECT_EQ(kivrun::RoundFolderStem("/a/b/app.round.json"), "app.round");
  EXPECT_EQ(kivrun::RoundFolderStem("plain"), "plain");
  EXPECT_EQ(kivrun::RoundFolderStem(""), "kivrun-round");
}

TEST(RoundFolderTest, EventLogIsKnownByItsFirstLine) {
  TempFolder dir;
  Write(dir.File("log.jsonl"), kLogLine);
  Write(dir.File("notes.jsonl"), "{\"name\":\"mine\"}\n");
  Write(dir.File("empty.jsonl"), "");
  EXPECT_TRUE(kivrun::IsEventLogFile(dir.File("log.jsonl")));
  EXPECT_FALSE(kivrun::IsEventLogFile(dir.File("notes.jsonl")));
  EXPECT_FALSE(kivrun::IsEventLogFile(dir.File("empty.jsonl")));
  EXPECT_FALSE(kivrun::IsEventLogFile(dir.File("missing.jsonl")));
  EXPECT_FALSE(kivrun::IsEventLogFile(dir.path()));
}

TEST(RoundFolderTest, RoundFoldersAreEmptyOrHoldARound) {
  TempFolder dir;
  EXPECT_TRUE(kivrun::IsRoundFolder(dir.Folder("empty")));
  WriteRound(dir.Folder("round"));
  EXPECT_TRUE(kivrun::IsRoundFolder(dir.File("round")));
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("missing")));

  WriteRound(dir.Folder("with_notes"));
  Write(dir.File("with_notes/notes.txt"), "mine");
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("with_notes")));

  dir.Folder("report_only");
  Write(dir.File("report_only/report.md"), "my own report");
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("report_only"))) << "no event log: not a round";

  WriteRound(dir.Folder("other_log"));
  Write(dir.File("other_log/events.jsonl"), "{\"name\":\"mine\"}\n");
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("other_log")));

  Write(dir.File("a_file"), "text");
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("a_file")));

  WriteRound(dir.Folder("linked"));
  fs::remove(dir.File("linked/events.jsonl"));
  Write(dir.File("elsewhere.jsonl"), kLogLine);
  fs::create_symlink(dir.File("elsewhere.jsonl"), dir.File("linked/events.jsonl"));
  EXPECT_FALSE(kivrun::IsRoundFolder(dir.File("linked"))) << "a link is not what a round writes";
}

TEST(RoundFolderTest, NewFolderIsNamedAfterTheScenario) {
  TempFolder dir;
  kivrun::RoundFolder folder;
  std::string reason;
  ASSERT_TRUE(kivrun::ChooseRoundFolder("scenarios/app_round.json", dir.path(), &folder, &reason));
  EXPECT_EQ(folder.path, dir.File("app_round"));
  EXPECT_FALSE(folder.earlier_round);
  EXPECT_EQ(folder.note, "");
  ASSERT_TRUE(kivrun::PrepareRoundFolder(folder, &reason)) << reason;
  EXPECT_TRUE(fs::is_directory(dir.File("app_round")));

  ASSERT_TRUE(kivrun::ChooseRoundFolder("app_round.json", "", &folder, &reason));
  EXPECT_EQ(folder.path, "app_round") << "the working folder is named by nothing";
}

TEST(RoundFolderTest, EarlierRoundIsReplacedPicturesAndAll) {
  TempFolder dir;
  WriteRound(dir.Folder("app_round"));
  kivrun::RoundFolder folder;
  std::string reason;
  ASSERT_TRUE(kivrun::ChooseRoundFolder("app_round.json", dir.path(), &folder, &reason));
  EXPECT_EQ(folder.path, dir.File("app_round"));
  EXPECT_TRUE(folder.earlier_round);
  EXPECT_EQ(folder.note, "");
  ASSERT_TRUE(kivrun::PrepareRoundFolder(folder, &reason)) << reason;
  EXPECT_FALSE(fs::exists(dir.File("app_round/pictures"))) << "old pictures would mix with new";
}

TEST(RoundFolderTest, SomebodyElsesFolderStaysAsItIs) {
  TempFolder dir;
  WriteRound(dir.Folder("app_round"));
  Write(dir.File("app_round/thesis.tex"), "years of work");
  kivrun::RoundFolder folder;
  std::string reason;
  ASSERT_TRUE(kivrun::ChooseRoundFolder("app_round.json", dir.path(), &folder, &reason));
  EXPECT_EQ(folder.path, dir.File("app_round-2"));
  EXPECT_FALSE(folder.earlier_round);
  EXPECT_EQ(folder.note, dir.File("app_round") +
                             "/ holds files that are not a round kivrun wrote; they stay as they "
                             "are and this round goes to " +
                             dir.File("app_round-2") + "/");
  ASSERT_TRUE(kivrun::PrepareRoundFolder(folder, &reason)) << reason;
  EXPECT_EQ(ReadFile(dir.File("app_round/thesis.tex")), "years of work");
  EXPECT_EQ(ReadFile(dir.File("app_round/pictures/left/560.bmp")), "bmp");

  // A file of the scenario's name is no folder of ours either.
  Write(dir.File("plain_round"), "a file");
  ASSERT_TRUE(kivrun::ChooseRoundFolder("plain_round.json", dir.path(), &folder, &reason));
  EXPECT_EQ(folder.path, dir.File("plain_round-2"));

  // The next free number after an earlier round in NAME-2/ is NAME-2/ again.
  WriteRound(dir.File("app_round-2"));
  ASSERT_TRUE(kivrun::ChooseRoundFolder("app_round.json", dir.path(), &folder, &reason));
  EXPECT_EQ(folder.path, dir.File("app_round-2"));
  EXPECT_TRUE(folder.earlier_round);
}

TEST(RoundFolderTest, NoFolderLeftIsSaid) {
  TempFolder dir;
  Write(dir.File("busy"), "x");
  for (int number = 2; number <= 99; ++number) Write(dir.File("busy-" + std::to_string(number)), "x");
  kivrun::RoundFolder folder;
  std::string reason;
  EXPECT_FALSE(kivrun::ChooseRoundFolder("busy.json", dir.path(), &folder, &reason));
  EXPECT_NE(reason.find("all hold files that are not a round kivrun wrote; name one with "
                        "--report DIR"),
            std::string::npos)
      << reason;
}

TEST(RoundFolderTest, FolderThatCannotBeMadeIsNamed) {
  TempFolder dir;
  kivrun::RoundFolder folder;
  folder.path = dir.File("no/such/parent");
  std::string reason;
  EXPECT_FALSE(kivrun::PrepareRoundFolder(folder, &reason));
  EXPECT_NE(reason.find("cannot make the folder " + folder.path + ": "), std::string::npos)
      << reason;
}

}  // namespace
