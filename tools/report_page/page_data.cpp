#include "tools/report_page/page_data.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <vector>

#include "tools/calc/picture_files.h"
#include "tools/report_page/camera_grid.h"
#include "tools/report_page/page_pictures.h"
#include "tools/report_page/plane_points.h"
#include "tools/report_page/round_figures.h"
#include "tools/report_page/round_log.h"
#include "tools/stripe_tool/overlay.h"

namespace reportpage {

namespace {

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void Str(Writer& w, const std::string& text) {
  w.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void Key(Writer& w, const char* key) { w.Key(key); }

void Field(Writer& w, const char* key, const std::string& text) {
  Key(w, key);
  Str(w, text);
}

void Field(Writer& w, const char* key, int value) {
  Key(w, key);
  w.Int(value);
}

template <typename T, typename F>
void List(Writer& w, const char* key, const std::vector<T>& items, F each) {
  Key(w, key);
  w.StartArray();
  for (const T& item : items) each(item);
  w.EndArray();
}

const char* SideName(Side side) {
  return side == Side::kLeft ? "left" : side == Side::kRight ? "right" : "unknown";
}

const char* StateName(RoundLog::State state) {
  switch (state) {
    case RoundLog::State::kNone:
      return "none";
    case RoundLog::State::kRead:
      return "read";
    case RoundLog::State::kDamaged:
      return "damaged";
    case RoundLog::State::kOtherRound:
      return "other_round";
    case RoundLog::State::kTooLarge:
      return "too_large";
  }
  return "none";
}

std::string Colour(const cv::Scalar& bgr) {
  char text[8];
  std::snprintf(text, sizeof text, "#%02x%02x%02x", static_cast<int>(bgr[2]),
                static_cast<int>(bgr[1]), static_cast<int>(bgr[0]));
  return text;
}

void WriteTimeline(Writer& w, const RoundLog& log) {
  Key(w, "timeline");
  w.StartObject();
  Key(w, "lanes");
  w.StartArray();
  for (const char* lane : kLaneNames) w.String(lane);
  w.EndArray();
  List(w, "t", log.timeline, [&](const TimelineEvent& e) { w.Int64(e.t); });
  List(w, "lane", log.timeline, [&](const TimelineEvent& e) { w.Int(e.lane); });
  List(w, "text", log.timeline, [&](const TimelineEvent& e) { Str(w, e.text); });
  w.EndObject();
}

void WriteFigures(Writer& w, const std::vector<Figure>& figures) {
  List(w, "figures", figures, [&](const Figure& f) {
    w.StartObject();
    Field(w, "group", f.group);
    Field(w, "what", f.what);
    Field(w, "computed", f.computed);
    Field(w, "truth", f.truth);
    Field(w, "error", f.error);
    Field(w, "scatter", f.scatter);
    Field(w, "uncertainty", f.uncertainty);
    Field(w, "rule", f.rule);
    Field(w, "verdict", f.verdict);
    Key(w, "share_of_goal");
    if (f.share_of_goal) {
      w.Double(*f.share_of_goal);
    } else {
      w.Null();
    }
    w.EndObject();
  });
}

void WriteLasers(Writer& w, const std::vector<LaserPoints>& lasers) {
  List(w, "lasers", lasers, [&](const LaserPoints& l) {
    w.StartObject();
    Field(w, "side", l.side);
    Field(w, "source", "recomputed");
    Field(w, "problem", l.problem);
    List(w, "notes", l.notes, [&](const std::string& n) { Str(w, n); });
    if (l.problem.empty()) {
      Key(w, "plane");
      w.StartObject();
      Key(w, "yaw");
      w.Double(l.plane.yaw);
      Key(w, "roll");
      w.Double(l.plane.roll);
      Key(w, "offset_mm");
      w.Double(l.plane.offset * 10);
      Key(w, "rms_um");
      w.Double(l.rms_um);
      Field(w, "points", l.points);
      w.EndObject();
      Key(w, "matches_log");
      w.Bool(l.matches_log);
      Field(w, "logged", l.logged);
    }
    List(w, "distances", l.distances, [&](const DistancePoints& d) {
      w.StartObject();
      Field(w, "distance", d.distance);
      Field(w, "picture", d.picture);
      List(w, "row", d.row, [&](int r) { w.Int(r); });
      List(w, "residual_um", d.residual_um, [&](double v) { w.Double(v); });
      List(w, "along_mm", d.along_mm, [&](double v) { w.Double(v); });
      List(w, "height_mm", d.height_mm, [&](double v) { w.Double(v); });
      w.EndObject();
    });
    w.EndObject();
  });
}

void WriteLines(Writer& w, const char* key, const std::vector<GridLine>& lines) {
  List(w, key, lines, [&](const GridLine& line) {
    w.StartArray();
    w.StartArray();
    for (double c : line.columns) w.Double(c);
    w.EndArray();
    w.StartArray();
    for (double r : line.rows) w.Double(r);
    w.EndArray();
    w.EndArray();
  });
}

// The camera the camera parameter node measured, as the event log has it,
// and its grid against the simulator's camera; null members when the round
// measured none.
void WriteRecoveredCamera(Writer& w, const rapidjson::Value& answer) {
  const auto recovered = LensOf(Member(answer, "camera"));
  const auto truth = LensOf(Member(answer, "truth"));
  CameraGrid grid;
  if (recovered && truth) {
    grid = GridOf(*truth, *recovered, calc::kPictureWidth, calc::kPictureHeight);
  }
  Key(w, "recovered");
  if (!recovered || !truth || !grid.finite) {
    w.Null();
    Key(w, "grid");
    w.Null();
    return;
  }
  Member(answer, "camera").Accept(w);
  Key(w, "grid");
  w.StartObject();
  WriteLines(w, "truth", grid.truth);
  WriteLines(w, "recovered", grid.recovered);
  Key(w, "largest_difference_px");
  w.Double(grid.largest_difference_px);
  w.EndObject();
}

void WriteCamera(Writer& w, const RoundLog& log) {
  Key(w, "camera");
  if (log.state != RoundLog::State::kRead) {
    w.Null();
    return;
  }
  w.StartObject();
  Key(w, "used");
  w.StartObject();
  const std::pair<const char*, double> used[] = {
      {"fx", log.camera.fx},           {"fy", log.camera.fy},         {"cx", log.camera.cx},
      {"cy", log.camera.cy},           {"height", log.camera.height}, {"pitch", log.camera.pitch},
      {"wall_height", log.wall_height}};
  for (const auto& [name, value] : used) {
    Key(w, name);
    w.Double(value);
  }
  w.EndObject();
  WriteRecoveredCamera(w, Member(log.answers, "ieparam"));
  Key(w, "ieparam");
  const auto ieparam = log.answers.FindMember("ieparam");
  if (ieparam != log.answers.MemberEnd()) {
    ieparam->value.Accept(w);
  } else {
    w.Null();
  }
  w.EndObject();
}

void WritePicture(Writer& w, const PagePicture& p) {
  const ShownPicture shown = ShowPicture(p);
  w.StartObject();
  Field(w, "path", p.path);
  Field(w, "label", p.label);
  Field(w, "version", p.version);
  Field(w, "reply", p.reply);
  Field(w, "writes", p.writes);
  Key(w, "size");
  w.Int64(p.size);
  Field(w, "hash", p.hash);
  Key(w, "app");
  w.Bool(p.app);
  Field(w, "problem", shown.problem);
  Field(w, "width", shown.width);
  Field(w, "height", shown.height);
  Field(w, "channels", shown.channels);
  Field(w, "image", shown.image);
  Key(w, "exact");
  w.Bool(shown.exact);
  Field(w, "largest_difference", shown.largest_difference);
  Field(w, "no_cut", shown.no_cut);
  Key(w, "cut");
  if (!shown.cut) {
    w.Null();
  } else {
    const StripeFindings& f = shown.findings;
    w.StartObject();
    Field(w, "side", SideName(f.side));
    Field(w, "outcome", f.outcome);
    Field(w, "words", f.words);
    Field(w, "result", f.result);
    Field(w, "points", f.points);
    Field(w, "cut_line", f.cut_line);
    Field(w, "cut_column", f.cut_column);
    Field(w, "num2", f.num2);
    Field(w, "G", f.G);
    Field(w, "overlay", shown.overlay);
    w.EndObject();
  }
  w.EndObject();
}

}  // namespace

std::string PageData(const RoundPage& round) {
  const RoundLog log = ReadRoundLog(round.event_log, round);
  rapidjson::StringBuffer text;
  Writer w(text);
  w.SetMaxDecimalPlaces(6);
  w.StartObject();
  Field(w, "format", kPageFormat);
  Field(w, "scenario", round.scenario);
  Field(w, "description", round.description);
  Field(w, "exit_code", round.exit_code);
  List(w, "summary", round.summary, [&](const std::pair<std::string, std::string>& row) {
    w.StartArray();
    Str(w, row.first);
    Str(w, row.second);
    w.EndArray();
  });
  List(w, "problems", round.problems, [&](const std::string& p) { Str(w, p); });
  Field(w, "versions_not_kept", round.versions_not_kept);
  Key(w, "log");
  w.StartObject();
  Field(w, "state", StateName(log.state));
  Field(w, "note", log.note);
  Field(w, "events", log.events);
  w.EndObject();
  WriteTimeline(w, log);
  WriteFigures(w, RoundFigures(log));
  WriteLasers(w, RecomputePlanePoints(log));
  WriteCamera(w, log);
  List(w, "pictures", round.pictures, [&](const PagePicture& p) { WritePicture(w, p); });
  List(w, "legend", stripeinspect::OverlayMarks(), [&](const stripeinspect::OverlayMark& m) {
    w.StartObject();
    Field(w, "colour", Colour(m.colour));
    Field(w, "shape", static_cast<int>(m.shape));
    Field(w, "words", m.words);
    w.EndObject();
  });
  w.EndObject();
  return std::string(text.GetString(), text.GetSize());
}

}  // namespace reportpage
