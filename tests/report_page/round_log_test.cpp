// What the round's page takes from the event log, and when it refuses a log
// that is not the round's.
#include "tools/report_page/round_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tools/report_page/round_figures.h"

namespace {

const char kLog[] = "/tmp/round_log_test.jsonl";

reportpage::RoundLog Read(const std::string& text, int exit_code = 0,
                          std::vector<reportpage::PagePicture> pictures = {}) {
  std::ofstream(kLog) << text;
  reportpage::RoundPage round;
  round.exit_code = exit_code;
  round.pictures = std::move(pictures);
  return reportpage::ReadRoundLog(kLog, round);
}

const char kRound[] =
    R"({"t":0,"event":"load","plugin":"liblasercali.so","ids":["KivNodeLaserCali"]}
{"t":0,"event":"camera_settings","step":1,"settings":{"scene":{"camera":{"fx":500,"pitch":12},"wall_height":150}}}
{"t":0,"event":"responder","node":"plane","listens":"LASER_CALIBR_REQ","answers":"LASER_CALIBR_REQRES","mode":"compute","needs":["/tmp/left/560.bmp","/tmp/right/560.bmp"]}
{"t":10,"event":"send","step":2,"topic":"CAMERACALI","record":"kiv_camera_cali_msg","fields":{"distance":5}}
{"t":20,"event":"console","stream":"stdout","text":"xxx not on the timeline"}
{"t":30,"event":"file","path":"/tmp/left/560.bmp","size":308278,"fnv1a64":"00000000000000aa"}
{"t":40,"event":"publish","topic":"CAMERACALIRES","tag":"src/x_1","record":"kiv_camera_calires_msg","fields":{"kind":2}}
{"t":50,"event":"publish","topic":"LASER_CALIBR_REQ","tag":"src/x_2","record":"LaserClibrMsg","fields":{"kind":3}}
{"t":60,"event":"answer","node":"plane","action":"answer","topic":"LASER_CALIBR_REQRES","record":"LaserClibrMsg","fields":{"result":1},"lasers":{"left":{"yaw":-2.0002,"roll":0.0,"offset_mm":21.98,"points":100,"floor_points":40,"wall_points":60,"rms_um":8.2},"right":{"code":3,"reason":"no stripe"}},"truth":{"left":{"yaw":-2.0,"roll":0.0,"offset_mm":21.9866}},"errors":{"left":{"normal_deg":0.0002,"offset_mm":-0.0066}}}
{"t":70,"event":"camera_settings","step":3,"settings":{"reset":true}}
{"t":80,"event":"matched","step":4,"label":"plane result","ticks":2}
{"t":90,"event":"end","exit":0}
)";

reportpage::PagePicture Picture(const std::string& path, const std::string& hash) {
  reportpage::PagePicture p;
  p.path = path;
  p.hash = hash;
  return p;
}

TEST(ReadRoundLog, TakesTheTimelineTheAnswersAndTheCamera) {
  const reportpage::RoundLog log =
      Read(kRound, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")});
  ASSERT_EQ(log.state, reportpage::RoundLog::State::kRead) << log.note;
  EXPECT_EQ(log.events, 12);
  ASSERT_EQ(log.timeline.size(), 6u);
  EXPECT_EQ(log.timeline[0].lane, reportpage::kToNode);
  EXPECT_EQ(log.timeline[0].text, "CAMERACALI {\"distance\":5}");
  EXPECT_EQ(log.timeline[1].lane, reportpage::kPictures);
  EXPECT_EQ(log.timeline[2].lane, reportpage::kFromNode);
  EXPECT_EQ(log.timeline[3].lane, reportpage::kToCalculation);
  EXPECT_EQ(log.timeline[4].lane, reportpage::kFromCalculation);
  EXPECT_EQ(log.timeline[5].lane, reportpage::kRound);
  EXPECT_EQ(log.timeline[5].t, 80);
  EXPECT_TRUE(log.answers.HasMember("plane"));
  EXPECT_EQ(log.plane_answer_t, 60);
  EXPECT_EQ(log.plane_needs.size(), 2u);
  // The camera as the settings left it when the plane node answered: the
  // later reset does not count.
  EXPECT_EQ(log.camera.fx, 500);
  EXPECT_EQ(log.camera.fy, 450);
  EXPECT_EQ(log.camera.pitch, 12);
  EXPECT_EQ(log.wall_height, 150);
  EXPECT_EQ(log.last_write.at("/tmp/left/560.bmp"), 30);
}

TEST(ReadRoundLog, RefusesAnotherRoundsLog) {
  EXPECT_EQ(Read(kRound, 4).state, reportpage::RoundLog::State::kOtherRound);
  const reportpage::RoundLog other =
      Read(kRound, 0, {Picture("/tmp/left/560.bmp", "00000000000000bb")});
  EXPECT_EQ(other.state, reportpage::RoundLog::State::kOtherRound);
  EXPECT_NE(other.note.find("/tmp/left/560.bmp"), std::string::npos) << other.note;
  EXPECT_TRUE(other.timeline.empty());
}

TEST(ReadRoundLog, RefusesADamagedLogNamingTheLine) {
  std::string damaged = kRound;
  damaged.insert(damaged.find("{\"t\":10"), "not json\n");
  const reportpage::RoundLog log = Read(damaged);
  EXPECT_EQ(log.state, reportpage::RoundLog::State::kDamaged);
  EXPECT_NE(log.note.find(":4: "), std::string::npos) << log.note;
  std::string cut = kRound;
  cut.resize(cut.find("{\"t\":90"));
  EXPECT_EQ(Read(cut).state, reportpage::RoundLog::State::kDamaged);
}

TEST(ReadRoundLog, NoLog) {
  reportpage::RoundPage round;
  EXPECT_EQ(reportpage::ReadRoundLog("", round).state, reportpage::RoundLog::State::kNone);
  EXPECT_EQ(reportpage::ReadRoundLog("/tmp/no_such_log.jsonl", round).state,
            reportpage::RoundLog::State::kNone);
}

TEST(RoundFigures, EachFigureBesideTheTruthWithItsRule) {
  const reportpage::RoundLog log =
      Read(kRound, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")});
  const std::vector<reportpage::Figure> figures = reportpage::RoundFigures(log);
  ASSERT_EQ(figures.size(), 3u);
  EXPECT_EQ(figures[0].group, "left laser plane");
  EXPECT_EQ(figures[0].computed, "-2.0002°, 0.0000°");
  EXPECT_EQ(figures[0].truth, "-2.0000°, 0.0000°");
  EXPECT_EQ(figures[0].verdict, "pass");
  EXPECT_EQ(figures[0].scatter, "fit RMS 8.2 µm over 100 points (40 floor, 60 wall)");
  ASSERT_TRUE(figures[0].share_of_goal.has_value());
  EXPECT_NEAR(*figures[0].share_of_goal, 0.0002 / reportpage::kGoalNormalDeg, 1e-12);
  EXPECT_EQ(figures[1].what, "offset");
  EXPECT_EQ(figures[1].error, "-0.0066 mm");
  EXPECT_EQ(figures[2].group, "right laser plane");
  EXPECT_EQ(figures[2].computed, "failed: code 3: no stripe");
  EXPECT_EQ(figures[2].verdict, "fail");
}

TEST(RoundFigures, ErrorsBeyondTheGoalFail) {
  std::string far = kRound;
  far.replace(far.find("\"offset_mm\":-0.0066"), 19, "\"offset_mm\":-0.6000");
  const std::vector<reportpage::Figure> figures =
      reportpage::RoundFigures(Read(far, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_GE(figures.size(), 2u);
  EXPECT_EQ(figures[1].verdict, "fail");
}

TEST(RoundFigures, NothingFromAnswersTheScenarioGave) {
  std::string fixed = kRound;
  const std::size_t from = fixed.find(",\"lasers\"");
  fixed.erase(from, fixed.find("}}}\n", from) + 2 - from);
  const reportpage::RoundLog log =
      Read(fixed, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")});
  ASSERT_EQ(log.state, reportpage::RoundLog::State::kRead) << log.note;
  EXPECT_TRUE(reportpage::RoundFigures(log).empty());
}

}  // namespace
