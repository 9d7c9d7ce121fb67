// libFuzzer target: board.json, the chessboard views' file a user puts
// beside their views in a picture folder (kivrun --pictures DIR).
//
// Input: the file's text. kivrun::ParseBoardJson must either refuse it
// with a ChessboardFolderError whose message begins with the file's name,
// or give a board and views that keep every rule the camera parameter node
// and kivrun rely on: a board the node takes (calc::BoardProblem has
// nothing to say), views named by plain .png or .bmp file names, each once,
// and placements of finite numbers whose axes are at right angles and of
// unit length; and the placement file written from each must read back to
// the same numbers.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "tests/fuzz/fuzz_support.h"
#include "tools/kivrun/chessboard_folder.h"

namespace {

void Check(bool ok, const std::string& rule) {
  if (!ok) fuzzsupport::Fail("an accepted board.json breaks a rule: " + rule);
}

bool Finite(const double v[3]) {
  return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

double Dot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  kivrun::BoardJson board;
  try {
    board = kivrun::ParseBoardJson(text, "board.json");
  } catch (const kivrun::ChessboardFolderError& e) {
    if (std::string(e.what()).rfind("board.json: ", 0) != 0) {
      fuzzsupport::Fail(std::string("a refusal that does not name the file: ") + e.what());
    }
    return 0;
  }
  Check(calc::BoardProblem(board.board).empty(), "a board the camera parameter node takes");
  Check(!board.views.empty(), "at least one view");
  std::set<std::string> names;
  for (const kivrun::BoardViewFile& view : board.views) {
    Check(!view.file.empty() && view.file.find('/') == std::string::npos,
          "a file name without a folder");
    Check(names.insert(view.file).second, "each file once");
    const kivrun::Placement& p = view.placement;
    Check(Finite(p.origin) && Finite(p.x_axis) && Finite(p.y_axis), "finite placements");
    Check(std::fabs(Dot(p.x_axis, p.x_axis) - 1) <= 1e-6 &&
              std::fabs(Dot(p.y_axis, p.y_axis) - 1) <= 1e-6 &&
              std::fabs(Dot(p.x_axis, p.y_axis)) <= 1e-6,
          "axes at right angles, of unit length");
    // The placement file holds every number to its last bit.
    const std::string written = kivrun::PlacementText(p);
    const char* at = written.c_str();
    for (const double* v : {p.origin, p.x_axis, p.y_axis}) {
      for (int i = 0; i < 3; ++i) {
        at = std::strpbrk(at, "-0123456789");
        Check(at != nullptr, "a placement file with every number");
        char* end = nullptr;
        Check(std::strtod(at, &end) == v[i], "a placement file that reads back the same");
        at = end;
      }
    }
  }
  return 0;
}
