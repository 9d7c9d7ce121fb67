// kivrun's round page on whole rounds: what the page holds, that it changes
// no exit code, and that the round's folder stays small.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

const std::string kScenarios = std::string(LASERCALI_SOURCE_DIR) + "/scenarios";

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs kivrun with `args`; its exit code.
int Kivrun(const std::string& args) {
  const int raw = std::system((std::string(KIVRUN) + " " + args + " >/dev/null 2>&1").c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

fs::path NewFolder() {
  char pattern[] = "/tmp/round_page_test.XXXXXX";
  return mkdtemp(pattern);
}

// A round played into `dir` as scripts/demo.sh plays it; its exit code.
int Round(const fs::path& dir, const std::string& scenario) {
  return Kivrun("--log " + (dir / "events.jsonl").string() + " --report " + dir.string() +
                " --pictures-out " + (dir / "pictures").string() + " " + kScenarios + "/" +
                scenario);
}

rapidjson::Document PageData(const fs::path& page) {
  const std::string html = ReadFile(page);
  const std::string open = "<script type=\"application/json\" id=\"round-data\">";
  const std::size_t from = html.find(open);
  EXPECT_NE(from, std::string::npos);
  const std::string json =
      html.substr(from + open.size(), html.find("</script>", from) - from - open.size());
  rapidjson::Document data;
  data.Parse(json.c_str());
  EXPECT_FALSE(data.HasParseError());
  return data;
}

std::uintmax_t FolderBytes(const fs::path& dir) {
  std::uintmax_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  return bytes;
}

TEST(RoundPage, TheFactoryRoundsPage) {
  const fs::path dir = NewFolder();
  ASSERT_EQ(Round(dir, "factory_compute_round.json"), 0);
  const rapidjson::Document data = PageData(dir / "report.html");
  EXPECT_EQ(data["exit_code"].GetInt(), 0);
  EXPECT_EQ(std::string(data["log"]["state"].GetString()), "read");
  EXPECT_GT(data["timeline"]["t"].Size(), 100u);
  ASSERT_EQ(data["figures"].Size(), 7u);
  for (const auto& figure : data["figures"].GetArray()) {
    EXPECT_EQ(std::string(figure["verdict"].GetString()), "pass") << figure["group"].GetString();
  }
  ASSERT_EQ(data["lasers"].Size(), 2u);
  for (const auto& laser : data["lasers"].GetArray()) {
    EXPECT_EQ(std::string(laser["problem"].GetString()), "");
    EXPECT_TRUE(laser["matches_log"].GetBool()) << laser["logged"].GetString();
    EXPECT_EQ(laser["distances"].Size(), 9u);
    EXPECT_GT(laser["plane"]["points"].GetInt(), 4000);
  }
  ASSERT_EQ(data["pictures"].Size(), 20u);
  for (const auto& picture : data["pictures"].GetArray()) {
    EXPECT_EQ(std::string(picture["problem"].GetString()), "") << picture["path"].GetString();
    EXPECT_TRUE(picture["cut"].IsObject()) << picture["path"].GetString();
  }
  EXPECT_LT(FolderBytes(dir), 10u * 1000 * 1000) << "the factory round's folder";
  fs::remove_all(dir);
}

TEST(RoundPage, ARefusalIsOnThePageAndTheExitCodeStays) {
  const fs::path with = NewFolder();
  const fs::path without = NewFolder();
  const int code = Round(with, "failure_plane.json");
  EXPECT_EQ(code, Kivrun("--log " + (without / "events.jsonl").string() + " " + kScenarios +
                         "/failure_plane.json"));
  const rapidjson::Document data = PageData(with / "report.html");
  EXPECT_EQ(data["exit_code"].GetInt(), code);
  ASSERT_GT(data["problems"].Size(), 0u);
  EXPECT_NE(std::string(data["problems"][0].GetString()).find("missing"), std::string::npos)
      << data["problems"][0].GetString();
  EXPECT_EQ(data["lasers"].Size(), 0u) << "the plane node computed nothing";
  fs::remove_all(with);
  fs::remove_all(without);
}

TEST(RoundPage, AnotherRoundsLogInTheFolderIsNotTaken) {
  const fs::path dir = NewFolder();
  ASSERT_EQ(Round(dir, "factory_compute_round.json"), 0);
  // The app round's report into the same folder, its log elsewhere.
  const int code = Kivrun("--log " + (dir / "app.jsonl").string() + " --report " + dir.string() +
                          " " + kScenarios + "/app_compute_round.json");
  const rapidjson::Document data = PageData(dir / "report.html");
  EXPECT_EQ(data["exit_code"].GetInt(), code);
  EXPECT_EQ(std::string(data["log"]["state"].GetString()), "other_round");
  EXPECT_EQ(data["timeline"]["t"].Size(), 0u);
  fs::remove_all(dir);
}

}  // namespace
