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

TEST(RoundFigures, EachFigureWithTheUncertaintyItsNodeReported) {
  std::string with_sigma = kRound;
  with_sigma.replace(
      with_sigma.find("\"rms_um\":8.2}"), 13,
      "\"rms_um\":8.2,\"sigma\":{\"yaw\":0.04418,\"roll\":0.02994,\"offset_mm\":0.0329}}");
  const std::vector<reportpage::Figure> figures = reportpage::RoundFigures(
      Read(with_sigma, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_GE(figures.size(), 2u);
  EXPECT_EQ(figures[0].uncertainty, "±0.0442° yaw, ±0.0299° roll");
  EXPECT_EQ(figures[1].uncertainty, "±0.0329 mm");
  // Without a reported sigma there is none to show.
  const std::vector<reportpage::Figure> plain =
      reportpage::RoundFigures(Read(kRound, 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  EXPECT_EQ(plain[0].uncertainty, "");
}

// The round's own answers of the check node and of the camera parameter
// node, after the plane node's.
std::string WithAnswers(const std::string& answers) {
  std::string text = kRound;
  text.insert(text.find("{\"t\":70"), answers);
  return text;
}

TEST(RoundFigures, TheCheckIsJudgedByTheNodesOwnAnswer) {
  const std::string check =
      R"({"t":65,"event":"answer","node":"check","action":"answer","fields":{"kind":4,"check_result":RESULT},)"
      R"("residuals":{"left":{"rms_px":0.311,"worst_px":3.394,"points":3709,"bias_px":0.05},)"
      R"("right":{"rms_px":0.3134,"worst_px":2.4893,"points":3664,"bias_px":0.0265}}})"
      "\n";
  std::string passed = check;
  passed.replace(passed.find("RESULT"), 6, "1");
  std::vector<reportpage::Figure> figures = reportpage::RoundFigures(
      Read(WithAnswers(passed), 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_EQ(figures.size(), 5u);
  EXPECT_EQ(figures[3].group, "plane check");
  EXPECT_EQ(figures[3].computed, "0.3110 px RMS, 3.3940 px at worst, bias 0.0500 px");
  // Residuals the former fixed limits (0.2 px RMS, 1.0 px worst) rejected
  // pass where the node passed them.
  EXPECT_EQ(figures[3].verdict, "pass");
  EXPECT_EQ(figures[4].verdict, "pass");
  std::string failed = check;
  failed.replace(failed.find("RESULT"), 6, "11");
  figures = reportpage::RoundFigures(
      Read(WithAnswers(failed), 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_EQ(figures.size(), 5u);
  EXPECT_EQ(figures[3].verdict, "fail: code 11");
}

TEST(RoundFigures, TheMeasuredCameraBesideTheTruthWithItsSigma) {
  const std::string camera =
      R"({"t":65,"event":"answer","node":"ieparam","action":"answer","fields":{"ieparam3":1},)"
      R"("camera":{"fx":520.1,"fy":519.97,"cx":322.95,"cy":235.89,"k1":-0.2999,"height_cm":5.003,)"
      R"("pitch_deg":9.902,"rms_px":0.067,"views":15},)"
      R"("sigma":{"fx":0.19,"fy":0.19,"cx":0.29,"cy":0.24,"k1":0.0011,"height_cm":0.003,"pitch_deg":0.028},)"
      R"("truth":{"fx":520.0,"fy":520.0,"cx":322.5,"cy":236.8,"k1":-0.3,"height_cm":5.0,"pitch_deg":10.0},)"
      R"("errors":{"fx":0.1,"fy":-0.03,"cx":0.45,"cy":-0.91,"k1":0.0001,"height_cm":0.003,"pitch_deg":-0.098}})"
      "\n";
  const std::vector<reportpage::Figure> figures = reportpage::RoundFigures(
      Read(WithAnswers(camera), 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_EQ(figures.size(), 3u + 7u);
  const reportpage::Figure& cy = figures[6];
  EXPECT_EQ(cy.group, "camera");
  EXPECT_EQ(cy.what, "principal point cy");
  EXPECT_EQ(cy.computed, "235.89 px");
  EXPECT_EQ(cy.truth, "236.80 px");
  EXPECT_EQ(cy.uncertainty, "±0.240 px");
  EXPECT_EQ(cy.error, "-0.910 px (3.8 σ)");
  EXPECT_EQ(cy.scatter, "reprojection RMS 0.067 px over 15 views");
  EXPECT_FALSE(cy.share_of_goal.has_value()) << "no accuracy goal for the camera";
  EXPECT_EQ(figures[9].what, "pitch");
  EXPECT_EQ(figures[9].uncertainty, "±0.0280°");
}

TEST(RoundFigures, ACameraThatWasNotMeasuredIsOneRowWithItsCode) {
  const std::string failed =
      R"({"t":65,"event":"answer","node":"ieparam","action":"fail","fields":{"ieparam3":15},)"
      R"("code":15,"reason":"too few views: 5 show the board, the calibration needs at least 6"})"
      "\n";
  const std::vector<reportpage::Figure> figures = reportpage::RoundFigures(
      Read(WithAnswers(failed), 0, {Picture("/tmp/left/560.bmp", "00000000000000aa")}));
  ASSERT_EQ(figures.size(), 4u);
  EXPECT_EQ(figures[3].group, "camera");
  EXPECT_EQ(figures[3].computed,
            "failed: code 15: too few views: 5 show the board, the calibration needs at least 6");
  EXPECT_EQ(figures[3].verdict, "fail");
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
