// kivrun and stripe-inspect under hostile input: nesting too deep, numbers
// past their range, keys with a NUL, files that are no files, outputs that
// cannot be written (/dev/full, a terminal that has gone away), picture
// headers that lie. Each must end with one clear message naming the file
// (and the step), the documented exit code, and no crash.
//
// Each kind of file and each output is given to the real program once;
// files that differ from those only in their bytes go, in process, to the
// reader the program uses (kivrun's scenario and JSON file readers, the
// stripe cut's picture reader), run from the test's folder so that the
// messages name the files as the programs do.
//
// The test binary runs in a /tmp of its own, and so do the programs it
// starts; every file is written into the test's own folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "platform/sunxi_cam/camera_sim.h"
#include "tests/support/program_run.h"
#include "tests/support/refusal_in_folder.h"
#include "tests/support/stripe_pictures.h"
#include "tools/kivrun/scenario.h"
#include "tools/stripe_tool/picture_input.h"
#include "tools/stripe_tool/picture_output.h"

namespace {

namespace fs = std::filesystem;

using testsupport::Lines;
using testsupport::ProgramRun;
using testsupport::ReadFile;

// A BMP header (no pixels) that claims `width` x `height`, 8 bits a pixel.
std::string BmpHeader(int32_t width, int32_t height) {
  std::string header(54 + 1024, '\0');
  auto put32 = [&header](std::size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) header[at + i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  };
  header[0] = 'B';
  header[1] = 'M';
  put32(2, 54 + 1024 + 64);
  put32(10, 54 + 1024);
  put32(14, 40);
  put32(18, static_cast<uint32_t>(width));
  put32(22, static_cast<uint32_t>(height));
  header[26] = 1;
  header[28] = 8;
  return header + std::string(64, '\x7f');
}

// The terminal side of a pseudo-terminal whose other side has closed: every
// write to it fails with EIO, as on a device that has gone away. The
// descriptor is left open across exec, so a shell can give it to a program
// (`>&N`).
class HungUpTerminal {
 public:
  HungUpTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return;
    const char* name = ptsname(master);
    if (name != nullptr) fd_ = open(name, O_WRONLY | O_NOCTTY);
    close(master);
  }
  ~HungUpTerminal() {
    if (fd_ >= 0) close(fd_);
  }
  HungUpTerminal(const HungUpTerminal&) = delete;
  HungUpTerminal& operator=(const HungUpTerminal&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/hostile_input_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  std::string Write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return (dir_ / name).string();
  }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs `program` with `args` from the test folder; standard output goes to
  // `out` (a file of the test folder unless given).
  ProgramRun Run(const std::string& program, const std::string& args, const std::string& out = "") {
    const std::string out_file = out.empty() ? Path("out.txt") : out;
    const std::string command = "cd '" + dir_.string() + "' && " + program + " " + args + " >" +
                                out_file + " 2>" + Path("err.txt");
    const int raw = std::system(command.c_str());
    ProgramRun run;
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    if (out.empty()) run.out = ReadFile(out_file);
    run.err = Lines(ReadFile(Path("err.txt")));
    return run;
  }
  ProgramRun Kivrun(const std::string& args, const std::string& out = "") {
    return Run(KIVRUN, args, out);
  }
  ProgramRun StripeInspect(const std::string& args, const std::string& out = "") {
    return Run(STRIPE_INSPECT, args, out);
  }

  // A scenario file "s.json" with the default configuration and these steps.
  std::string Scenario(const std::string& steps, const std::string& extra = "") {
    return Write("s.json", R"({"config_file": ")" + std::string(LASERCALI_SOURCE_DIR) +
                               R"(/scenarios/lasercali.json", )" + extra + R"("steps": [)" + steps +
                               "]}");
  }

  // The message `read` throws, run from the test's folder as the programs
  // run from their working folder; "" when it throws nothing.
  template <typename Read>
  std::string InFolder(const Read& read) {
    return testsupport::RefusalInFolder(dir_, read);
  }
  std::string ScenarioRefusal(const std::string& name) {
    return InFolder([&name] { kivrun::LoadScenario(name); });
  }
  std::string ConfigRefusal(const std::string& name) {
    return InFolder([&name] { kivrun::ReadJsonFile(name); });
  }

  // kivrun's scenario reader refuses the scenario "s.json" with `message`
  // (kivrun shows it after "kivrun: ", exit code 1).
  void ExpectScenarioError(const std::string& steps, const std::string& message,
                           const std::string& extra = "") {
    SCOPED_TRACE(steps);
    Scenario(steps, extra);
    EXPECT_EQ(ScenarioRefusal("s.json"), message);
  }

  // The events of a log file, each checked to be valid JSON.
  std::vector<rapidjson::Document> Log(const std::string& name) {
    std::vector<rapidjson::Document> events;
    for (const std::string& line : Lines(ReadFile(Path(name)))) {
      events.emplace_back();
      events.back().Parse<rapidjson::kParseValidateEncodingFlag>(line.c_str());
      EXPECT_FALSE(events.back().HasParseError()) << line;
    }
    return events;
  }

  fs::path dir_;
};

std::string Nested(int levels) { return std::string(levels, '[') + std::string(levels, ']'); }

TEST_F(HostileInputTest, NestingDeeperThanTheLimitIsRefusedWhereverItIs) {
  const std::string deep = Nested(100000);
  const std::string too_deep = " lists and objects nest deeper than 64 levels";
  struct Case {
    std::string steps, extra;
  } cases[] = {
      {"", R"("config": {"name": )" + deep + "}, "},
      {R"({"camera": {"scene": )" + deep + "}}", ""},
      {R"({"json": {"a": )" + deep + "}}", ""},
      {R"({"send": "CAMERACALI", "fields": {"distance": )" + deep + "}}", ""},
      {R"({"wait": {"topic": "CAMERACALIRES", "fields": {"kind": )" + deep +
           R"(}}, "within_ticks": 2})",
       ""},
      {"", R"("description": )" + deep + ", "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.steps.substr(0, 40) + c.extra.substr(0, 40));
    Write("s.json", "{" + c.extra + R"("steps": [)" + c.steps + "]}");
    const std::string message = ScenarioRefusal("s.json");
    EXPECT_EQ(message.rfind("s.json:1:", 0), 0u) << message;
    EXPECT_NE(message.find(":" + too_deep), std::string::npos) << message;
  }
  // kivrun itself, on the first.
  Write("s.json", "{" + cases[0].extra + R"("steps": []})");
  ProgramRun run = Kivrun("--log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0].rfind("kivrun: s.json:1:", 0), 0u) << run.err[0];
  EXPECT_NE(run.err[0].find(":" + too_deep), std::string::npos) << run.err[0];

  // A configuration file, given on the command line or by the scenario.
  Write("deep.json", R"({"name": )" + deep + "}");
  run = Kivrun("--config deep.json");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: deep.json:1:73:" + too_deep);
  Write("s.json", R"({"config_file": "deep.json", "steps": []})");
  EXPECT_EQ(ScenarioRefusal("s.json"), "./deep.json:1:73:" + too_deep);
}

TEST_F(HostileInputTest, TimeValuesOutsideTheirRangeAreRefusedNamingTheStep) {
  ExpectScenarioError(R"({"advance_ms": 9223372036854776})",
                      "s.json: step 1: \"advance_ms\" needs a whole number from 0 to 3600000, not "
                      "9223372036854776");
  ExpectScenarioError(R"({"responder": "plane", "delay_ms": 9223372036854776})",
                      "s.json: step 1: \"delay_ms\" needs a whole number from 1 to 3600000, not "
                      "9223372036854776");
  ExpectScenarioError(R"({"advance_us": 9223372036854775807}, {"advance_us": 9223372036854775807})",
                      "s.json: step 1: \"advance_us\" needs a whole number from 0 to 3600000000, "
                      "not 9223372036854775807");
  ExpectScenarioError(R"({"note": "fine"}, {"advance_us": -1})",
                      "s.json: step 2: \"advance_us\" needs a whole number from 0 to 3600000000, "
                      "not -1");
  ExpectScenarioError(R"({"advance_ms": 1e3})",
                      "s.json: step 1: \"advance_ms\" needs a whole number from 0 to 3600000, not "
                      "1000.0");
}

TEST_F(HostileInputTest, TheLongestStepsRunToTheirEnd) {
  // An hour, twice, then a million ticks of the frame timer: the clock
  // cannot overflow and every step ends.
  Scenario(R"({"advance_us": 3600000000}, {"advance_ms": 3600000},
              {"responder": "plane", "delay_ms": 3600000}, {"ticks": 1000000})");
  const ProgramRun run = Kivrun("--log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 0);
  const auto events = Log("log.jsonl");
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back()["t"].GetInt64(), 7200000000);
  EXPECT_EQ(events.back()["exit"].GetInt(), 0);
}

TEST_F(HostileInputTest, CountsOutsideTheirRangeAreRefused) {
  const std::string until = R"("until": {"topic": "CAMERACALIRES"})";
  ExpectScenarioError(R"({"ticks": 4294967301})",
                      "s.json: step 1: \"ticks\" needs a whole number from 0 to 1000000, not "
                      "4294967301");
  ExpectScenarioError(R"({"ticks": 2147483648})",
                      "s.json: step 1: \"ticks\" needs a whole number from 0 to 1000000, not "
                      "2147483648");
  ExpectScenarioError(R"({"wait": {"topic": "CAMERACALIRES"}, "within_ticks": 1000001})",
                      "s.json: step 1: \"within_ticks\" needs a whole number from 1 to 1000000, "
                      "not 1000001");
  ExpectScenarioError(R"({"repeat": {"send": "CAMERACALI"}, )" + until + R"(, "limit": 100001})",
                      "s.json: step 1: \"limit\" needs a whole number from 1 to 100000, not "
                      "100001");
  ExpectScenarioError(
      R"({"repeat": {"send": "CAMERACALI"}, )" + until + R"(, "limit": 2, "every_ticks": 0})",
      "s.json: step 1: \"every_ticks\" needs a whole number from 1 to 1000000, not 0");
  ExpectScenarioError(
      R"({"repeat": {"send": "CAMERACALI"}, )" + until + R"(, "limit": 100000, "every_ticks": 11})",
      "s.json: step 1: \"repeat\" may let at most 1000000 ticks pass (every_ticks 11 x limit "
      "100000 is 1100000)");
}

TEST_F(HostileInputTest, AKeyWithANulIsUnknownAndShownEscaped) {
  ExpectScenarioError(R"({"ticks\u0000": 3})",
                      "s.json: step 1: unknown member \"ticks\\u0000\" (a step is one of send, "
                      "json, advance_us, advance_ms, ticks, camera, log_frames, trace, teardown, "
                      "note, responder, repeat, wait)");
  ExpectScenarioError(R"({"send": "CAMERACALI", "fields\u0000x": {}})",
                      "s.json: step 1: \"fields\\u0000x\" does not belong to a \"send\" step (it "
                      "takes fields, record)");
}

TEST_F(HostileInputTest, WhatIsNoFileIsNamedForWhatItIs) {
  fs::create_directory(dir_ / "folder.json");
  const ProgramRun run = Kivrun("folder.json");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: folder.json: is a folder, not a file");
  EXPECT_EQ(ConfigRefusal("folder.json"), "folder.json: is a folder, not a file");
  const std::string device = "/dev/zero: is not a regular file (a device, a pipe or a socket)";
  EXPECT_EQ(ScenarioRefusal("/dev/zero"), device);
  EXPECT_EQ(ConfigRefusal("/dev/zero"), device);

  // Larger than 16 MiB: refused before it is read.
  fs::resize_file(Write("big.json", "{}"), 16 * 1024 * 1024 + 1);
  const std::string big =
      "big.json: is 16777217 bytes; a JSON file may have at most 16777216 bytes (16 MiB)";
  EXPECT_EQ(ScenarioRefusal("big.json"), big);
  Write("s.json", R"({"config_file": "big.json", "steps": []})");
  EXPECT_EQ(ScenarioRefusal("s.json"), "./" + big);
}

TEST_F(HostileInputTest, ASendToATopicWithTwoRecordTypesAsksWhichOne) {
  // A node named after a topic it subscribes to takes its JSON commands there too.
  Write("s.json", R"({"config": {"name": "CAMERACALI", "delt_factory": 60, "delt_app": 20},
                      "steps": [{"send": "CAMERACALI", "fields": {"distance": 5}}]})");
  const ProgramRun run = Kivrun("--log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: s.json: step 1: the node takes several record types on \"CAMERACALI\" "
            "(kiv_camera_cali_msg, KivJsonMsg); name the one to send with \"record\"");
  EXPECT_EQ(Log("log.jsonl").back()["exit"].GetInt(), 1);
}

TEST_F(HostileInputTest, AnEmptyRecordTypeIsRefused) {
  ExpectScenarioError(R"({"send": "CAMERACALI", "record": ""})",
                      "s.json: step 1: \"record\" needs a record type name");
}

TEST_F(HostileInputTest, ABuilderThatReturnsNoNodeIsANodeError) {
  Write("s.json", R"({"node": "NullNode", "config": {}, "steps": [{"note": "never"}]})");
  const ProgramRun run = Kivrun("--plugin=" + std::string(NULL_BUILDER_PLUGIN) +
                                " --log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 3);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: the builder of NullNode returned no node");
  const auto events = Log("log.jsonl");
  ASSERT_GE(events.size(), 2u);
  EXPECT_STREQ(events[events.size() - 2]["event"].GetString(), "error");
  EXPECT_STREQ(events.back()["event"].GetString(), "end");
  EXPECT_EQ(events.back()["exit"].GetInt(), 3);
}

TEST_F(HostileInputTest, KivrunOutputsThatCannotBeWrittenAreReported) {
  // An app reset: the node publishes, so the trace has lines too.
  Scenario(R"({"send": "laser_calibration", "fields": {"distance": 4369}})");
  ProgramRun run = Kivrun("--log /dev/full s.json");
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: cannot write /dev/full: No space left on device");

  run = Kivrun("--trace-times=/dev/full --log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "kivrun: cannot write /dev/full: No space left on device");

  run = Kivrun("s.json", "/dev/full");
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: cannot write the event log to standard output: No space left on device");

  for (const std::string option : {"--help", "--version"}) {
    run = Kivrun(option, "/dev/full");
    EXPECT_EQ(run.status, 2) << option;
    ASSERT_EQ(run.err.size(), 1u) << option;
    EXPECT_EQ(run.err[0], "kivrun: cannot write standard output: No space left on device");
  }
}

TEST_F(HostileInputTest, OutputsThatFailWithAnIoErrorAreReported) {
  const HungUpTerminal terminal;
  ASSERT_GE(terminal.fd(), 0) << "no pseudo-terminal";
  ASSERT_EQ(write(terminal.fd(), "x", 1), -1);
  ASSERT_EQ(errno, EIO);
  const std::string to_terminal = "&" + std::to_string(terminal.fd());

  Scenario(R"({"send": "laser_calibration", "fields": {"distance": 4369}})");
  ProgramRun run = Kivrun("s.json", to_terminal);
  EXPECT_EQ(run.status, 2);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: cannot write the event log to standard output: Input/output error");

  ASSERT_TRUE(cv::imwrite(Path("bent.bmp"), testsupport::BentStripePicture()));
  run = StripeInspect("bent.bmp", to_terminal);
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0], "stripe-inspect: cannot write standard output: Input/output error");
}

// The camera step's settings, as the camera simulator reads them in kivrun;
// the message that names what is wrong, or "".
std::string CameraRefusal(const std::string& settings) {
  rapidjson::Document json;
  json.Parse(settings.c_str());
  sunxi_cam::sim::Reset();
  std::string message;
  try {
    sunxi_cam::sim::Configure(json);
  } catch (const std::exception& e) {
    message = e.what();
  }
  sunxi_cam::sim::Reset();
  return message;
}

TEST_F(HostileInputTest, CameraSceneValuesOutsideTheirRangeNameTheMember) {
  Scenario(R"({"camera": {"scene": {"camera": {"fx": 1e300}}}})");
  const ProgramRun run = Kivrun("--log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "kivrun: s.json: step 1: camera sim: scene.camera.fx must be greater than 0 and at "
            "most 100000");
  EXPECT_EQ(CameraRefusal(R"({"scene": {"left_laser": {"y": -1e300}}})"),
            "camera sim: scene.left_laser.y must be between -1000 and 1000");
  EXPECT_EQ(CameraRefusal(R"({"distance": 1e300})"),
            "camera sim: distance must be greater than 0 and at most 10000");
}

TEST_F(HostileInputTest, APictureHeaderThatLiesIsNamedInPlainWords) {
  Write("huge.bmp", BmpHeader(100000, 100000));
  // The camera step's picture, read from kivrun's working folder.
  std::string message;
  InFolder([&message] { message = CameraRefusal(R"({"images": {"left": "huge.bmp"}})"); });
  EXPECT_EQ(message,
            "camera sim: images.left: image file 'huge.bmp' is a BMP picture whose header claims "
            "100000 x 100000 pixels; the camera needs 640 x 480 with one 8-bit channel "
            "(grayscale)");

  // A simulated calculation node that needs the picture refuses it.
  Scenario(R"({"responder": "ieparam", "needs": [")" + Path("huge.bmp") + R"("]},
              {"send": "CAMERACALI_IEPARAM", "record": "CameraClibrIEParamMsg"},
              {"advance_ms": 20})");
  const ProgramRun run = Kivrun("--log=" + Path("log.jsonl") + " s.json");
  EXPECT_EQ(run.status, 0);
  bool refused = false;
  for (const auto& event : Log("log.jsonl")) {
    if (std::string(event["event"].GetString()) != "answer") continue;
    refused = true;
    EXPECT_STREQ(event["action"].GetString(), "refuse");
    ASSERT_TRUE(event.HasMember("problems"));
    EXPECT_EQ(event["problems"][0].GetString(),
              Path("huge.bmp") + ": 100000 x 100000, not 640 x 480");
  }
  EXPECT_TRUE(refused);

  // Too wide, and upside down at the most negative height: stripe-inspect's
  // picture reader (a huge picture given to stripe-inspect itself is below).
  Write("wide.bmp", BmpHeader(-2147483647 - 1, -2147483647 - 1));
  EXPECT_EQ(InFolder([] { stripetool::ReadPicture("wide.bmp", false); }),
            "'wide.bmp' is a BMP picture whose header claims -2147483648 x 2147483648 pixels; the "
            "stripe cut needs 640 x 480 with one 8-bit channel");
}

TEST_F(HostileInputTest, StripeInspectNamesAHugePictureInPlainWords) {
  Write("huge.bmp", BmpHeader(100000, 100000));
  const ProgramRun run = StripeInspect("huge.bmp");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "stripe-inspect: 'huge.bmp' is a BMP picture whose header claims 100000 x 100000 "
            "pixels; the stripe cut needs 640 x 480 with one 8-bit channel");
  EXPECT_EQ(run.out, "");
}

TEST_F(HostileInputTest, StripeInspectOutputsThatCannotBeWrittenAreReported) {
  ASSERT_TRUE(cv::imwrite(Path("bent.bmp"), testsupport::BentStripePicture()));
  // The format follows the name's extension: links to /dev/full with one.
  fs::create_symlink("/dev/full", dir_ / "full.bmp");
  fs::create_symlink("/dev/full", dir_ / "full.png");
  ProgramRun run = StripeInspect("bent.bmp --out full.bmp");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "stripe-inspect: cannot write the cut picture to 'full.bmp': No space left on device");
  run = StripeInspect("bent.bmp --overlay full.png");
  EXPECT_EQ(run.status, 1);
  ASSERT_EQ(run.err.size(), 1u);
  EXPECT_EQ(run.err[0],
            "stripe-inspect: cannot write the overlay to 'full.png': No space left on device");
  // A name without an extension gets none added: stripe-inspect's writer.
  EXPECT_EQ(stripetool::PictureNameProblem("/dev/full", "overlay"),
            "cannot write the overlay to '/dev/full': the file name has no extension (.png, "
            ".bmp, ...) to choose the picture format");
  EXPECT_THROW(stripetool::WritePicture("/dev/full", testsupport::BentStripePicture(), "overlay"),
               std::runtime_error);
  EXPECT_FALSE(fs::exists("/dev/full.png"));

  for (const std::string args : {"bent.bmp", "bent.bmp --json", "--help", "--version"}) {
    run = StripeInspect(args, "/dev/full");
    EXPECT_EQ(run.status, 1) << args;
    ASSERT_EQ(run.err.size(), 1u) << args;
    EXPECT_EQ(run.err[0], "stripe-inspect: cannot write standard output: No space left on device");
  }
  // The same outputs to files that take them still work.
  run = StripeInspect("bent.bmp --out cut.bmp --overlay why.png");
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(run.err.empty());
  EXPECT_FALSE(cv::imread(Path("cut.bmp"), cv::IMREAD_UNCHANGED).empty());
  EXPECT_FALSE(cv::imread(Path("why.png"), cv::IMREAD_UNCHANGED).empty());
}

}  // namespace
