#include "tools/sim_pictures/chessboard.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <stdexcept>
#include <utility>

#include "tools/kivrun/chessboard_folder.h"
#include "tools/sim_pictures/chessboard_views_text.h"

namespace simpictures {
namespace {

[[noreturn]] void Fail(const std::string& name, const std::string& what) {
  throw std::invalid_argument(name + ": " + what);
}

double NumberOr(const rapidjson::Value& object, const char* member, double fallback,
                const std::string& where) {
  auto it = object.FindMember(member);
  if (it == object.MemberEnd()) return fallback;
  if (!it->value.IsNumber()) Fail(where, std::string(member) + " must be a number");
  return it->value.GetDouble();
}

}  // namespace

std::string ShippedViewsText() { return kShippedChessboardViews; }

BoardViews ReadViews(const std::string& text, const std::string& name) {
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
  if (doc.HasParseError()) {
    Fail(name, std::string("is not JSON: ") + rapidjson::GetParseError_En(doc.GetParseError()));
  }
  if (!doc.IsObject() || !doc.HasMember("board") || !doc["board"].IsObject() ||
      !doc.HasMember("views") || !doc["views"].IsArray() || doc["views"].Empty()) {
    Fail(name, "must be an object with \"board\" (an object) and \"views\" (a list of poses)");
  }
  BoardViews views;
  const rapidjson::Value& board = doc["board"];
  auto integer = [&](const char* member, int fallback) {
    auto it = board.FindMember(member);
    if (it == board.MemberEnd()) return fallback;
    if (!it->value.IsInt()) Fail(name, std::string("board.") + member + " must be an integer");
    return it->value.GetInt();
  };
  views.cols = integer("cols", views.cols);
  views.rows = integer("rows", views.rows);
  views.square = NumberOr(board, "square", views.square, name + ": board");
  views.margin = NumberOr(board, "margin", views.margin, name + ": board");
  const rapidjson::Value& poses = doc["views"];
  for (rapidjson::SizeType i = 0; i < poses.Size(); ++i) {
    const std::string where = name + ": views[" + std::to_string(i) + "]";
    if (!poses[i].IsObject()) Fail(where, "must be an object");
    for (auto m = poses[i].MemberBegin(); m != poses[i].MemberEnd(); ++m) {
      const std::string member(m->name.GetString(), m->name.GetStringLength());
      if (member != "x" && member != "y" && member != "z" && member != "yaw" && member != "pitch" &&
          member != "roll") {
        Fail(where, member + " is not a pose member (x, y, z, yaw, pitch, roll)");
      }
    }
    rapidjson::Document setting(rapidjson::kObjectType);
    auto& a = setting.GetAllocator();
    rapidjson::Value b(rapidjson::kObjectType);
    b.AddMember("on", true, a);
    b.AddMember("cols", views.cols, a);
    b.AddMember("rows", views.rows, a);
    b.AddMember("square", views.square, a);
    b.AddMember("margin", views.margin, a);
    for (const char* member : {"x", "y", "z", "yaw", "pitch", "roll"}) {
      const double fallback = std::string(member) == "z" ? 40 : 0;
      b.AddMember(rapidjson::StringRef(member), NumberOr(poses[i], member, fallback, where), a);
    }
    rapidjson::Value scene(rapidjson::kObjectType);
    scene.AddMember("board", b, a);
    setting.AddMember("scene", scene, a);
    rapidjson::StringBuffer text_out;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text_out);
    setting.Accept(writer);
    views.settings.push_back(text_out.GetString());
  }
  return views;
}

std::string BoardJson(const BoardViews& views, const std::vector<WrittenView>& written,
                      int exposure, int gain) {
  rapidjson::StringBuffer out;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> w(out);
  w.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  auto number = [&w](const char* key, double value) {
    w.Key(key);
    w.Double(value);
  };
  w.StartObject();
  // The board as the camera parameter node's configuration gives it.
  w.Key("board");
  w.StartObject();
  w.Key("columns");
  w.Int(views.cols);
  w.Key("rows");
  w.Int(views.rows);
  number("square_cm", views.square);
  number("margin_cm", views.margin);
  w.EndObject();
  w.Key("picture");
  w.StartObject();
  w.Key("width");
  w.Int(sunxi_cam::sim::kWidth);
  w.Key("height");
  w.Int(sunxi_cam::sim::kHeight);
  w.Key("exposure");
  w.Int(exposure);
  w.Key("gain");
  w.Int(gain);
  w.EndObject();
  if (!written.empty()) {
    const sunxi_cam::sim::CameraModel& c = written.front().truth.camera;
    w.Key("camera");
    w.StartObject();
    number("fx", c.fx);
    number("fy", c.fy);
    number("cx", c.cx);
    number("cy", c.cy);
    w.Key("distortion");
    w.StartArray();
    for (double k : {c.k1, c.k2, c.p1, c.p2, c.k3}) w.Double(k);
    w.EndArray();
    w.EndObject();
  }
  w.Key("views");
  w.StartArray();
  for (const WrittenView& view : written) {
    const sunxi_cam::sim::CameraPose& pose = view.truth.board.pose;
    w.StartObject();
    w.Key("file");
    w.String(view.file.c_str());
    w.Key("rotation");
    w.StartArray();
    for (const auto& row : pose.rotation) {
      w.StartArray();
      for (double r : row) w.Double(r + 0.0);  // no -0
      w.EndArray();
    }
    w.EndArray();
    w.Key("translation");
    w.StartArray();
    for (double t : pose.translation) w.Double(t + 0.0);
    w.EndArray();
    // Where a fixture would have held the board on the robot.
    const kivrun::Placement placement = kivrun::PlacementOf(view.truth);
    w.Key("placement");
    w.StartObject();
    const std::pair<const char*, const double*> vectors[] = {{"origin_cm", placement.origin},
                                                             {"x_axis", placement.x_axis},
                                                             {"y_axis", placement.y_axis}};
    for (const auto& [key, v] : vectors) {
      w.Key(key);
      w.StartArray();
      for (int i = 0; i < 3; ++i) w.Double(v[i] + 0.0);
      w.EndArray();
    }
    w.EndObject();
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  return std::string(out.GetString()) + "\n";
}

}  // namespace simpictures
