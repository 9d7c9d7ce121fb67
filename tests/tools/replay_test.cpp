// Reading an event log back for a replay: what it keeps of each event, the
// limits and checks of a log (every error names the file and the line), and
// the comparison of a replay's log with the recorded one.
#include "tools/kivrun/replay.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using kivrun::Recording;
using kivrun::Step;

// The start of a recorded round up to the built node.
const std::vector<std::string> kStart = {
    R"({"t":0,"event":"load","plugin":"liblasercali.so","ids":["KivNodeLaserCali"]})",
    R"({"t":0,"event":"build","node":"KivNodeLaserCali","config":{"name":"lasercali","delt_factory":60,"delt_app":20.5}})",
    R"({"t":0,"event":"console","stream":"stdout","text":"xxx  delt_factory 60"})",
    R"({"t":0,"event":"version","node":"lasercali","commit":"@BUILD_COMMIT_TAG@","framework":"@FRAMEWORK_TAG@"})",
    R"({"t":0,"event":"built","node":"KivNodeLaserCali","name":"lasercali"})"};

const std::vector<std::string> kEnd = {R"({"t":20000,"event":"teardown","name":"lasercali"})",
                                       R"({"t":20000,"event":"end","exit":0})"};

class ReplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/replay_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    path_ = (dir_ / "old.jsonl").string();
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Writes `text` as the log, bytes as they are.
  void WriteText(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
  // Writes the lines as a log, each with its line end.
  void Write(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    WriteText(text);
  }
  // A round: the start, `middle`, the teardown and the end.
  std::vector<std::string> Round(const std::vector<std::string>& middle) {
    std::vector<std::string> lines = kStart;
    lines.insert(lines.end(), middle.begin(), middle.end());
    lines.insert(lines.end(), kEnd.begin(), kEnd.end());
    return lines;
  }
  // The error of reading the log, or "" when it reads.
  std::string Error() {
    try {
      kivrun::ReadRecording(path_);
      return "";
    } catch (const kivrun::ReplayError& e) {
      return e.what();
    } catch (const kivrun::ScenarioError& e) {
      return e.what();
    }
  }
  // The error of reading a round with `middle` in it.
  std::string RoundError(const std::vector<std::string>& middle) {
    Write(Round(middle));
    return Error();
  }
  // Where line `n` of the log is, as messages say it.
  std::string At(int n) const { return path_ + ":" + std::to_string(n) + ": "; }

  fs::path dir_;
  std::string path_;
};

TEST_F(ReplayTest, AReadLogKeepsWhatTheReplayPlaysInOrder) {
  Write(Round({
      R"({"t":0,"event":"responder","node":"plane","listens":"LASER_CALIBR_REQ","answers":"LASER_CALIBR_REQRES","mode":"answer","fields":{"result":1},"needs":[],"refuse":2,"delay_us":10000})",
      R"({"t":0,"event":"send","step":2,"topic":"CAMERACALI","record":"kiv_camera_cali_msg","fields":{"distance":5}})",
      R"({"t":0,"event":"camera_settings","step":3,"settings":{"distance":5}})",
      R"({"t":0,"event":"json","step":4,"topic":"lasercali","command":{"cmd":"open_camera"}})",
      R"({"t":0,"event":"json_reply","step":4,"members":[["ok",true]]})",
      R"({"t":0,"event":"json","step":5,"topic":"lasercali","command":null})",
      R"({"t":0,"event":"advance","step":6,"us":10000})",
      R"({"t":10000,"event":"answer","node":"plane","action":"answer","topic":"LASER_CALIBR_REQRES","record":"LaserClibrMsg","fields":{"kind":2,"result":1}})",
      R"({"t":10000,"event":"ticks","step":7,"ticks":3})",
      R"({"t":10000,"event":"trace","step":8,"on":false})",
      R"({"t":10000,"event":"log_frames","step":9,"on":true})",
      R"({"t":10000,"event":"note","step":10,"text":"a note"})",
      R"({"t":20000,"event":"matched","step":11,"label":"result","ticks":1})",
      R"({"t":20000,"event":"error","what":"the builder of X returned no node"})",
  }));
  const Recording r = kivrun::ReadRecording(path_);
  EXPECT_EQ(r.path, path_);
  EXPECT_EQ(r.node_id, "KivNodeLaserCali");
  EXPECT_EQ(r.config, R"({"name":"lasercali","delt_factory":60,"delt_app":20.5})");
  EXPECT_EQ(r.lines.size(), 21u);
  EXPECT_EQ(r.lines[1], kStart[1]);
  EXPECT_EQ(r.end_code, 0);
  EXPECT_EQ(r.end_t, 20000);
  EXPECT_EQ(r.commit_tag, "@BUILD_COMMIT_TAG@");
  EXPECT_TRUE(r.HasPlaceholderTags());

  std::vector<std::string> kinds;
  for (const auto& input : r.inputs) kinds.push_back(input.kind);
  // Outputs (json_reply, console, ...) and an error without a step are not played.
  EXPECT_EQ(kinds, (std::vector<std::string>{"responder", "send", "camera_settings", "json", "json",
                                             "advance", "ticks", "trace", "log_frames", "note",
                                             "matched", "teardown"}));
  const auto& send = r.inputs[1];
  EXPECT_EQ(send.line, 7);
  EXPECT_EQ(send.step.kind, Step::Kind::kSend);
  EXPECT_EQ(send.step.number, 2);
  EXPECT_EQ(send.step.topic, "CAMERACALI");
  EXPECT_EQ(send.step.record, "kiv_camera_cali_msg");
  EXPECT_EQ(send.step.value.text(), R"({"distance":5})");
  EXPECT_EQ(r.inputs[2].step.kind, Step::Kind::kCamera);
  EXPECT_EQ(r.inputs[2].step.value.text(), R"({"distance":5})");
  EXPECT_EQ(r.inputs[3].step.kind, Step::Kind::kJson);
  EXPECT_EQ(r.inputs[3].step.value.text(), R"({"cmd":"open_camera"})");
  EXPECT_FALSE(r.inputs[4].step.value.present()) << "a null command";
  EXPECT_EQ(r.inputs[5].step.kind, Step::Kind::kAdvance);
  EXPECT_EQ(r.inputs[5].step.amount, 10000);
  EXPECT_EQ(r.inputs[5].t, 0);
  EXPECT_EQ(r.inputs[6].step.kind, Step::Kind::kTicks);
  EXPECT_EQ(r.inputs[6].step.amount, 3);
  EXPECT_EQ(r.inputs[7].step.kind, Step::Kind::kTrace);
  EXPECT_FALSE(r.inputs[7].step.flag);
  EXPECT_EQ(r.inputs[8].step.kind, Step::Kind::kLogFrames);
  EXPECT_TRUE(r.inputs[8].step.flag);
  EXPECT_EQ(r.inputs[9].step.text, "a note");
  EXPECT_EQ(r.inputs[10].members, R"({"step":11,"label":"result","ticks":1})");
  EXPECT_EQ(r.inputs[11].t, 20000);

  ASSERT_EQ(r.answers.count("plane"), 1u);
  ASSERT_EQ(r.answers.at("plane").size(), 1u);
  EXPECT_EQ(
      r.answers.at("plane")[0].members,
      R"({"node":"plane","action":"answer","topic":"LASER_CALIBR_REQRES","record":"LaserClibrMsg","fields":{"kind":2,"result":1}})");
}

TEST_F(ReplayTest, ExactBytesComeBackFromBytesHex) {
  // A message naming a file that is not UTF-8, and a member name that is not either.
  Write(
      Round({"{\"t\":0,\"event\":\"error\",\"step\":3,\"what\":\"a\xEF\xBF\xBD"
             "b.json: step 3\",\"x\xEF\xBF\xBD\":{\"y\xEF\xBF\xBD\":\"z\xEF\xBF\xBD\"},"
             "\"bytes_hex\":{\"/what\":\"61ff622e6a736f6e3a20737465702033\","
             "\"name:/x\xEF\xBF\xBD\":\"78fe\","
             "\"name:/x\xEF\xBF\xBD/y\xEF\xBF\xBD\":\"79fd\","
             "\"/x\xEF\xBF\xBD/y\xEF\xBF\xBD\":\"7afc\"}}"}));
  const Recording r = kivrun::ReadRecording(path_);
  ASSERT_EQ(r.inputs.size(), 2u);
  const rapidjson::Document members = kivrun::ParseRecorded(r.inputs[0].members);
  ASSERT_FALSE(members.HasParseError());
  EXPECT_EQ(std::string(members["what"].GetString(), members["what"].GetStringLength()),
            "a\xFF"
            "b.json: step 3");
  EXPECT_FALSE(members.HasMember("bytes_hex"));
  const auto x = members.FindMember("x\xFE");
  ASSERT_NE(x, members.MemberEnd());
  const auto y = x->value.FindMember("y\xFD");
  ASSERT_NE(y, x->value.MemberEnd());
  EXPECT_EQ(std::string(y->value.GetString()), "z\xFC");
  // Compared as written.
  EXPECT_NE(r.compared[5].find("bytes_hex"), std::string::npos);
}

TEST_F(ReplayTest, ALogThatIsNoFileOrTooLargeIsRefusedBeforeItIsRead) {
  EXPECT_EQ(
      [&] {
        try {
          kivrun::ReadRecording(dir_.string());
        } catch (const kivrun::ScenarioError& e) {
          return std::string(e.what());
        }
        return std::string();
      }(),
      dir_.string() + ": is a folder, not a file");
  WriteText("");
  EXPECT_EQ(Error(), path_ + ": is empty, not a kivrun event log");
  Write(Round({}));
  fs::resize_file(path_, static_cast<std::uintmax_t>(kivrun::kMaxJsonFileBytes) + 1);
  EXPECT_EQ(Error(), path_ +
                         ": is 16777217 bytes; an event log may have at most 16777216 bytes "
                         "(16 MiB)");
}

TEST_F(ReplayTest, DamagedLinesAreNamedByLineAndColumn) {
  std::vector<std::string> lines = Round({});
  lines[2] = R"({"t":0,"event":"console","stream":"stdout" "text":"x"})";
  Write(lines);
  EXPECT_EQ(Error(), path_ + ":3:44: Missing a comma or '}' after an object member.");
  lines[2] = "{\"t\":0,\"event\":\"console\",\"stream\":\"stdout\",\"text\":\"\xFF\"}";
  Write(lines);
  EXPECT_EQ(Error(), path_ + ":3:52: Invalid encoding in string.");
  // 64 levels at most, as in a scenario: the event and 63 lists inside it.
  lines[2] = R"({"t":0,"event":"console","x":)" + std::string(63, '[') + std::string(63, ']') + "}";
  Write(lines);
  EXPECT_EQ(Error(), "");
  lines[2] = R"({"t":0,"event":"console","x":)" + std::string(64, '[') + std::string(64, ']') + "}";
  Write(lines);
  EXPECT_EQ(Error(), path_ + ":3:93: lists and objects nest deeper than 64 levels");
}

TEST_F(ReplayTest, WhatIsNoEventLogIsSaidSo) {
  Write({R"({"name":"lasercali","delt_factory":60})"});
  EXPECT_EQ(Error(), At(1) +
                         "not a kivrun event log: each line of an event log is an object "
                         "that starts with \"t\" (the clock in microseconds) and \"event\"");
  std::vector<std::string> lines = Round({});
  lines[2] = R"({"event":"console","t":0})";
  Write(lines);
  EXPECT_EQ(Error(), At(3) +
                         "not an event: each line of an event log is an object that starts "
                         "with \"t\" (the clock in microseconds) and \"event\"");
  lines[2] = R"({"t":-5,"event":"console"})";
  Write(lines);
  EXPECT_EQ(Error(), At(3) + "\"t\" needs a whole number of microseconds from 0, not -5");
  lines[2] = R"({"t":0,"event":7})";
  Write(lines);
  EXPECT_EQ(Error(), At(3) + "\"event\" needs a text, the kind of event, not 7");
  lines[2] = R"({"t":0,"event":"frobnicate"})";
  Write(lines);
  EXPECT_EQ(Error(), At(3) + "unknown event \"frobnicate\"");
}

TEST_F(ReplayTest, ALogCutShortIsNotWhole) {
  std::vector<std::string> lines = Round({});
  lines.pop_back();
  Write(lines);
  EXPECT_EQ(Error(), At(6) + "the log stops without its \"end\" event: it is cut short");
  std::string text;
  for (const std::string& line : Round({})) text += line + "\n";
  WriteText(text.substr(0, text.size() - 10));
  EXPECT_EQ(Error(), At(7) +
                         "the last line is cut off (it has no line end): the log is not "
                         "whole");
  // The last line end alone may be missing.
  WriteText(text.substr(0, text.size() - 1));
  EXPECT_EQ(Error(), "");
}

TEST_F(ReplayTest, NothingComesAfterTheEndAndNoLineIsEmpty) {
  std::vector<std::string> lines = Round({});
  lines.push_back(R"({"t":20000,"event":"note","step":1,"text":"late"})");
  Write(lines);
  EXPECT_EQ(Error(), At(8) + "an event after the \"end\" event of line 7");
  lines = Round({});
  lines.insert(lines.begin() + 3, "");
  Write(lines);
  EXPECT_EQ(Error(), At(4) + "an empty line; an event log has one event on every line");
}

TEST_F(ReplayTest, TheClockNeverGoesBackNorJumpsFurtherThanAStep) {
  EXPECT_EQ(RoundError({R"({"t":30000,"event":"note","step":1,"text":"a"})",
                        R"({"t":10000,"event":"note","step":2,"text":"b"})"}),
            At(7) + "the clock goes back, from 30000 to 10000 us");
  // An advance step of an hour, then a wait of a million ticks, log nothing between.
  EXPECT_EQ(RoundError({R"({"t":13600000000,"event":"note","step":1,"text":"a"})",
                        R"({"t":27200000001,"event":"note","step":2,"text":"b"})"}),
            At(7) +
                "the clock jumps from 13600000000 to 27200000001 us, further than any step "
                "moves it");
}

TEST_F(ReplayTest, ALogOfTheWallClockCannotBeReplayed) {
  std::vector<std::string> lines = Round({});
  lines.insert(lines.begin(), R"({"t":0,"event":"clock","source":"wall"})");
  Write(lines);
  EXPECT_EQ(Error(), At(1) +
                         "the log of a --realtime run: the wall clock put its ticks between "
                         "the steps, and a replay on the virtual clock cannot put them in "
                         "the same places");
}

TEST_F(ReplayTest, ARunThatBuiltNoNodeHasNothingToReplay) {
  Write({R"({"t":0,"event":"error","what":"cannot load plug-in 'x.so': x.so: cannot open"})",
         R"({"t":0,"event":"end","exit":3})"});
  EXPECT_EQ(Error(), path_ +
                         ": the recorded run built no node (there is no \"build\" event); "
                         "there is nothing to replay");
  Write({R"({"t":0,"event":"note","step":1,"text":"a"})", R"({"t":0,"event":"end","exit":0})"});
  EXPECT_EQ(Error(), At(1) + "a \"note\" event before the node's \"build\" event");
  std::vector<std::string> lines = Round({});
  lines.insert(lines.begin() + 2, kStart[1]);
  Write(lines);
  // A second "build" event is another node of the round, built after the
  // node under test.
  const kivrun::Recording recording = kivrun::ReadRecording(path_);
  ASSERT_EQ(recording.nodes.size(), 1u);
  EXPECT_EQ(recording.nodes[0].first, recording.node_id);
  EXPECT_EQ(recording.nodes[0].second, recording.config);
}

TEST_F(ReplayTest, TheCameraSettingOfKivrunPicturesIsStepZero) {
  Write(Round({
      R"({"t":0,"event":"camera_settings","step":0,"settings":{"pictures":"/robot/session"}})",
      R"({"t":0,"event":"camera_settings","step":1,"settings":{"pictures":"other"}})",
  }));
  const Recording r = kivrun::ReadRecording(path_);
  ASSERT_EQ(r.inputs.size(), 3u);
  EXPECT_EQ(r.inputs[0].step.kind, Step::Kind::kCamera);
  EXPECT_EQ(r.inputs[0].step.number, 0);
  EXPECT_EQ(r.inputs[0].step.value.text(), R"({"pictures":"/robot/session"})");
  EXPECT_EQ(r.inputs[1].step.number, 1);
  // Only the folder of --pictures is kept in sight of a private /tmp; a
  // scenario's own setting is looked up where the round looked it up.
  EXPECT_EQ(r.pictures, std::vector<std::string>{"/robot/session"});

  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"camera_settings","step":-1,"settings":{}})"}),
      At(6) + "a \"camera_settings\" event needs \"step\": a whole number from 0 to 2147483647");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"note","step":-1,"text":"x"})"}),
            At(6) + "a \"note\" event needs \"step\": a whole number from 0 to 2147483647");
}

TEST_F(ReplayTest, EventsTheReplayPlaysNeedTheirMembers) {
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"send","step":1,"record":"kiv_camera_cali_msg","fields":{}})"}),
      At(6) + "a \"send\" event needs \"topic\": a text that is not empty");
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"send","step":1,"topic":"A","record":"nope","fields":{}})"}),
      At(6) + "unknown record type \"nope\"");
  EXPECT_EQ(
      RoundError(
          {R"({"t":0,"event":"send","step":1,"topic":"A","record":"kiv_camera_cali_msg","fields":{"distance":70000}})"}),
      At(6) +
          "the fields of the \"send\" event do not fit kiv_camera_cali_msg: field "
          "\"distance\" needs an integer from 0 to 65535");
  EXPECT_EQ(
      RoundError(
          {R"({"t":0,"event":"send","step":-1,"topic":"A","record":"kiv_camera_cali_msg","fields":{}})"}),
      At(6) + "a \"send\" event needs \"step\": a whole number from 0 to 2147483647");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"json","step":1,"topic":"lasercali","command":[1]})"}),
            At(6) + "a \"json\" event needs \"command\": an object, or null");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"advance","step":1,"us":3600000001})"}),
            At(6) + "an \"advance\" event needs \"us\": a whole number from 0 to 3600000000");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"trace","step":1,"on":1})"}),
            At(6) + "a \"trace\" event needs \"on\": true or false");
  EXPECT_EQ(
      RoundError(
          {R"({"t":0,"event":"responder","node":"planes","mode":"answer","delay_us":10000})"}),
      At(6) + "no simulated node \"planes\"");
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"responder","node":"plane","mode":"loud","delay_us":10000})"}),
      At(6) + "a \"responder\" event needs \"mode\": answer, fail, compute or silent");
  EXPECT_EQ(
      RoundError(
          {R"({"t":0,"event":"answer","node":"plane","action":"answer","topic":"T","record":"LaserClibrMsg","fields":{"kind":300}})"}),
      At(6) +
          "the fields of the \"answer\" event do not fit LaserClibrMsg: field \"kind\" needs "
          "an integer from 0 to 255");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"matched","step":1,"ticks":2})"}),
            At(6) + "a \"matched\" event needs \"label\": a text");
  EXPECT_EQ(RoundError({R"({"t":0,"event":"error","step":1})"}),
            At(6) + "an \"error\" event needs \"what\": a text");
}

TEST_F(ReplayTest, BrokenBytesHexIsDamage) {
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"error","step":1,"what":"a","bytes_hex":{"/what":"6x"}})"}),
      At(6) + "\"bytes_hex\" has \"6x\", which is not bytes in hexadecimal");
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"error","step":1,"what":"a","bytes_hex":{"/nothing":"61"}})"}),
      At(6) + "\"bytes_hex\" names \"/nothing\", which is not a string of the event");
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"error","step":1,"what":"a","bytes_hex":{"name:/b":"61"}})"}),
      At(6) + "\"bytes_hex\" names \"name:/b\", which is not a member of the event");
  EXPECT_EQ(
      RoundError({R"({"t":0,"event":"error","step":1,"what":"a","bytes_hex":{"what":"61"}})"}),
      At(6) +
          "\"bytes_hex\" names \"what\", which is not a JSON Pointer to a string of the "
          "event");
}

TEST_F(ReplayTest, EventsAreComparedAsJsonWithoutTheVersionTags) {
  EXPECT_EQ(kivrun::ComparedEvent(R"({ "t": 0, "event": "note", "step": 1, "text": "caf\u00e9" })"),
            "{\"t\":0,\"event\":\"note\",\"step\":1,\"text\":\"caf\xC3\xA9\"}");
  EXPECT_EQ(kivrun::ComparedEvent(kStart[3]),
            R"({"t":0,"event":"version","node":"lasercali","commit":"","framework":""})");
  EXPECT_EQ(kivrun::ComparedEvent("not json"), "not json");
}

class LogComparisonTest : public ReplayTest {
 protected:
  void SetUp() override {
    ReplayTest::SetUp();
    Write(Round({R"({"t":0,"event":"note","step":1,"text":"a"})",
                 R"({"t":10000,"event":"note","step":2,"text":"b"})"}));
    recording_ = kivrun::ReadRecording(path_);
  }
  Recording recording_;
};

TEST_F(LogComparisonTest, TheSameEventsAreTheSame) {
  kivrun::LogComparison comparison(recording_);
  for (const std::string& line : recording_.lines) {
    // The replay's node has its own build's tags; spacing does not count.
    if (line.find("\"version\"") != std::string::npos) {
      comparison.Add(
          R"({"t":0,"event":"version","node":"lasercali","commit":"lasercali-1.2.3-abc","framework":"kiv-1.2.3-abc"})");
    } else {
      comparison.Add(line);
    }
  }
  EXPECT_TRUE(comparison.Same());
  EXPECT_EQ(comparison.FirstDifference(), 0u);
  EXPECT_EQ(comparison.count(), 9u);
  EXPECT_EQ(comparison.commit_tag(), "lasercali-1.2.3-abc");
  EXPECT_EQ(comparison.framework_tag(), "kiv-1.2.3-abc");
  EXPECT_EQ(comparison.Report("new.jsonl"), "");
}

TEST_F(LogComparisonTest, TheFirstDifferenceIsShownWithTheEventsBeforeIt) {
  kivrun::LogComparison comparison(recording_);
  for (std::size_t i = 0; i < 6; ++i) comparison.Add(recording_.lines[i]);
  comparison.Add(R"({"t":10000,"event":"note","step":2,"text":"c"})");
  comparison.Add(R"({"t":10000,"event":"note","step":3,"text":"later ones do not count"})");
  EXPECT_FALSE(comparison.Same());
  EXPECT_EQ(comparison.FirstDifference(), 7u);
  EXPECT_EQ(comparison.Report("new.jsonl"),
            "the replay differs from " + path_ +
                " at line 7 (- recorded, + replayed):\n"
                "    4  " +
                recording_.lines[3] +
                "\n"
                "    5  " +
                recording_.lines[4] +
                "\n"
                "    6  " +
                recording_.lines[5] +
                "\n"
                "  - 7  " +
                recording_.lines[6] +
                "\n"
                "  + 7  {\"t\":10000,\"event\":\"note\",\"step\":2,\"text\":\"c\"}\n"
                "  the events before line 7 are the same in both; the replay's log is new.jsonl\n");
  EXPECT_EQ(comparison.Report("new.jsonl", 1).find("    5  "), std::string::npos);
}

TEST_F(LogComparisonTest, ALogThatEndsEarlierOrLaterDiffersWhereItEnds) {
  kivrun::LogComparison shorter(recording_);
  for (std::size_t i = 0; i < 4; ++i) shorter.Add(recording_.lines[i]);
  EXPECT_FALSE(shorter.Same());
  EXPECT_EQ(shorter.FirstDifference(), 5u);
  EXPECT_NE(shorter.Report("new.jsonl").find("\n  + 5  (the replay's log ends after line 4)\n"),
            std::string::npos)
      << shorter.Report("new.jsonl");

  kivrun::LogComparison longer(recording_);
  for (const std::string& line : recording_.lines) longer.Add(line);
  longer.Add(R"({"t":20000,"event":"note","step":9,"text":"more"})");
  EXPECT_FALSE(longer.Same());
  EXPECT_EQ(longer.FirstDifference(), 10u);
  EXPECT_NE(longer.Report("new.jsonl").find("\n  - 10  (" + path_ + " ends after line 9)\n"),
            std::string::npos)
      << longer.Report("new.jsonl");
}

}  // namespace
