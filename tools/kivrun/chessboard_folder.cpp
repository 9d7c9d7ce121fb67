#include "tools/kivrun/chessboard_folder.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tools/kivrun/scenario.h"

namespace kivrun {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& name, const std::string& what) {
  throw ChessboardFolderError(name + ": " + what);
}

std::string Member(const rapidjson::Value::ConstMemberIterator& m) {
  return std::string(m->name.GetString(), m->name.GetStringLength());
}

// Refuses a member of `object` that is not in `known`, naming it at `where`.
void OnlyKnown(const rapidjson::Value& object, std::initializer_list<const char*> known,
               const std::string& name, const std::string& where) {
  for (auto m = object.MemberBegin(); m != object.MemberEnd(); ++m) {
    const std::string key = Member(m);
    if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; })) {
      std::string list;
      for (const char* k : known) list += (list.empty() ? "" : ", ") + std::string(k);
      Fail(name, where + "unknown member \"" + Printable(key) + "\" (it may hold " + list + ")");
    }
  }
}

int Whole(const rapidjson::Value& board, const char* key, const std::string& name) {
  const auto it = board.FindMember(key);
  if (it == board.MemberEnd()) {
    Fail(name, std::string("\"board\" needs \"") + key + "\": the inner corners of the board");
  }
  if (!it->value.IsInt() || it->value.GetInt() < 2 || it->value.GetInt() > 100) {
    Fail(name, std::string("board.") + key + " must be a whole number from 2 to 100");
  }
  return it->value.GetInt();
}

double Length(const rapidjson::Value& board, const char* key, double fallback, double least,
              const std::string& name) {
  const auto it = board.FindMember(key);
  if (it == board.MemberEnd()) return fallback;
  if (!it->value.IsNumber() || !(it->value.GetDouble() >= least) ||
      !(it->value.GetDouble() <= 100)) {
    Fail(name, std::string("board.") + key + " must be a number of cm from " +
                   (least > 0 ? "0.01" : "0") + " to 100");
  }
  return it->value.GetDouble();
}

void Vector(const rapidjson::Value& placement, const char* key, double out[3],
            const std::string& name, const std::string& where) {
  const auto it = placement.FindMember(key);
  const bool ok = it != placement.MemberEnd() && it->value.IsArray() && it->value.Size() == 3 &&
                  std::all_of(it->value.Begin(), it->value.End(), [](const rapidjson::Value& v) {
                    return v.IsNumber() && std::isfinite(v.GetDouble());
                  });
  if (!ok) Fail(name, where + "\"" + key + "\" must be a list of three numbers [x, y, z]");
  for (rapidjson::SizeType i = 0; i < 3; ++i) out[i] = it->value[i].GetDouble();
}

double Dot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Placement ReadPlacement(const rapidjson::Value& view, const std::string& name,
                        const std::string& where) {
  const auto it = view.FindMember("placement");
  if (it == view.MemberEnd() || !it->value.IsObject()) {
    Fail(name, where +
                   "needs \"placement\": {\"origin_cm\": [x, y, z], \"x_axis\": [x, y, z], "
                   "\"y_axis\": [x, y, z]}, where the fixture held the board on the robot");
  }
  const rapidjson::Value& p = it->value;
  const std::string at = where + "placement: ";
  OnlyKnown(p, {"origin_cm", "x_axis", "y_axis"}, name, at);
  Placement placement;
  Vector(p, "origin_cm", placement.origin, name, at);
  Vector(p, "x_axis", placement.x_axis, name, at);
  Vector(p, "y_axis", placement.y_axis, name, at);
  // As the camera parameter node checks it.
  const double tolerance = 1e-6;
  if (std::fabs(Dot(placement.x_axis, placement.x_axis) - 1) > tolerance ||
      std::fabs(Dot(placement.y_axis, placement.y_axis) - 1) > tolerance ||
      std::fabs(Dot(placement.x_axis, placement.y_axis)) > tolerance) {
    Fail(name, at + "x_axis and y_axis must be at right angles, each of unit length");
  }
  return placement;
}

bool IsView(const fs::path& path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return ext == ".png" || ext == ".bmp";
}

}  // namespace

BoardJson ParseBoardJson(const std::string& text, const std::string& name) {
  rapidjson::Document doc;
  const rapidjson::ParseResult parsed = ParseJson(&doc, text.data(), text.size());
  if (!parsed) {
    Fail(name, std::string("is not JSON: ") + rapidjson::GetParseError_En(parsed.Code()) +
                   " (at byte " + std::to_string(parsed.Offset()) + ")");
  }
  if (!doc.IsObject()) Fail(name, "must be a JSON object with \"board\" and \"views\"");
  OnlyKnown(doc, {"board", "views", "picture", "camera", "description"}, name, "");
  BoardJson out;
  const auto board = doc.FindMember("board");
  if (board == doc.MemberEnd() || !board->value.IsObject()) {
    Fail(name,
         "needs \"board\": {\"columns\": C, \"rows\": R} (inner corners), with \"square_cm\" "
         "and \"margin_cm\" when they are not 2.5");
  }
  const rapidjson::Value& b = board->value;
  OnlyKnown(b, {"columns", "rows", "square_cm", "margin_cm"}, name, "board: ");
  out.board.columns = Whole(b, "columns", name);
  out.board.rows = Whole(b, "rows", name);
  out.board.square = Length(b, "square_cm", out.board.square, 0.01, name);
  out.board.margin = Length(b, "margin_cm", out.board.margin, 0, name);
  const std::string problem = calc::BoardProblem(out.board);
  if (!problem.empty()) Fail(name, "board: " + problem);

  const auto views = doc.FindMember("views");
  if (views == doc.MemberEnd() || !views->value.IsArray() || views->value.Empty()) {
    Fail(name,
         "needs \"views\": a list of {\"file\": \"01.png\", \"placement\": {...}}, one for each "
         "view");
  }
  std::set<std::string> files;
  for (rapidjson::SizeType i = 0; i < views->value.Size(); ++i) {
    const rapidjson::Value& view = views->value[i];
    const std::string where = "views[" + std::to_string(i) + "]: ";
    if (!view.IsObject()) Fail(name, where + "must be an object with \"file\" and \"placement\"");
    OnlyKnown(view, {"file", "placement", "rotation", "translation"}, name, where);
    const auto file = view.FindMember("file");
    if (file == view.MemberEnd() || !file->value.IsString()) {
      Fail(name, where + "needs \"file\": the view's file name in the folder (\"01.png\")");
    }
    const std::string f(file->value.GetString(), file->value.GetStringLength());
    if (f.empty() || f.find('/') != std::string::npos || f.find('\0') != std::string::npos ||
        f == "." || f == ".." || !IsView(f)) {
      Fail(name, where +
                     "\"file\" must be the name of a .png or .bmp file beside board.json, not \"" +
                     Printable(f) + "\"");
    }
    if (!files.insert(f).second) Fail(name, where + "\"" + Printable(f) + "\" is listed twice");
    out.views.push_back({f, ReadPlacement(view, name, where)});
  }
  return out;
}

bool HasChessboardFolder(const std::string& dir) {
  std::error_code error;
  return fs::is_directory(fs::path(dir) / "chessboard", error);
}

ChessboardFolder ReadChessboardFolder(const std::string& dir) {
  ChessboardFolder out;
  const fs::path folder = fs::path(dir) / "chessboard";
  out.dir = folder.string();
  std::error_code error;
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (IsView(entry.path()) && !entry.is_directory(error)) {
      files.push_back(entry.path().filename().string());
    }
  }
  if (error) Fail(out.dir, "cannot be read: " + error.message());
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    Fail(out.dir, "holds no chessboard views (.png or .bmp files); put at least " +
                      std::to_string(kMinChessboardViews) + " there, or the camera's model in " +
                      (fs::path(dir) / "camera.yaml").string());
  }
  if (files.size() < static_cast<std::size_t>(kMinChessboardViews)) {
    Fail(out.dir, "holds " + std::to_string(files.size()) + " chessboard view" +
                      (files.size() == 1 ? "" : "s") + "; a camera calibration takes at least " +
                      std::to_string(kMinChessboardViews));
  }
  if (files.size() > static_cast<std::size_t>(kMaxChessboardViews)) {
    Fail(out.dir, "holds " + std::to_string(files.size()) +
                      " chessboard views; a camera calibration takes at most " +
                      std::to_string(kMaxChessboardViews));
  }

  const fs::path json = folder / "board.json";
  const std::string name = json.string();
  if (!fs::exists(json, error)) {
    Fail(name,
         "is missing: it gives the board (\"columns\", \"rows\", \"square_cm\", "
         "\"margin_cm\") and where the fixture held it for each view");
  }
  if (!fs::is_regular_file(json, error)) Fail(name, "is not a file");
  const auto size = fs::file_size(json, error);
  if (error || size > static_cast<std::uintmax_t>(kMaxBoardJsonBytes)) {
    Fail(name, "is larger than " + std::to_string(kMaxBoardJsonBytes) + " bytes");
  }
  std::ifstream in(json, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) Fail(name, "cannot be read");
  const BoardJson board = ParseBoardJson(text, name);
  out.board = board.board;

  // Every view has its placement, and every placement its view.
  for (const std::string& file : files) {
    const auto it = std::find_if(board.views.begin(), board.views.end(),
                                 [&](const BoardViewFile& v) { return v.file == file; });
    if (it == board.views.end()) {
      Fail((folder / file).string(), "board.json gives no placement for it (add {\"file\": \"" +
                                         Printable(file) +
                                         "\", \"placement\": {...}} to its \"views\")");
    }
    out.views.push_back((folder / file).string());
    out.placements.push_back(it->placement);
  }
  for (const BoardViewFile& view : board.views) {
    if (!std::binary_search(files.begin(), files.end(), view.file)) {
      Fail(name, "lists \"" + Printable(view.file) + "\", which is not in " + out.dir);
    }
  }
  // Each view as the camera would show it.
  for (const std::string& view : out.views) {
    const std::string problem = sunxi_cam::sim::ImageFileProblem(view);
    if (!problem.empty()) throw ChessboardFolderError(problem);
  }
  return out;
}

Placement PlacementOf(const sunxi_cam::sim::SceneTruth& truth) {
  const double(*r)[3] = truth.camera_pose.rotation;  // robot -> camera
  const double* t = truth.camera_pose.translation;
  const double(*b)[3] = truth.board.pose.rotation;  // board -> camera
  const double* bt = truth.board.pose.translation;
  Placement p;
  for (int i = 0; i < 3; ++i) {
    p.origin[i] = 0;
    p.x_axis[i] = 0;
    p.y_axis[i] = 0;
    for (int k = 0; k < 3; ++k) {
      p.origin[i] += r[k][i] * (bt[k] - t[k]);
      p.x_axis[i] += r[k][i] * b[k][0];
      p.y_axis[i] += r[k][i] * b[k][1];
    }
  }
  return p;
}

std::string PlacementText(const Placement& p) {
  char text[512];
  std::snprintf(text, sizeof text,
                "{\"origin_cm\": [%.17g, %.17g, %.17g], \"x_axis\": [%.17g, %.17g, %.17g], "
                "\"y_axis\": [%.17g, %.17g, %.17g]}\n",
                p.origin[0], p.origin[1], p.origin[2], p.x_axis[0], p.x_axis[1], p.x_axis[2],
                p.y_axis[0], p.y_axis[1], p.y_axis[2]);
  return text;
}

}  // namespace kivrun
