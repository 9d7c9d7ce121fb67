#include "tools/kivrun/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tools/kivrun/report_sheet.h"
#include "tools/report_page/kivrun_page.h"

namespace kivrun {

namespace {

namespace fs = std::filesystem;

// `text` for a Markdown table cell: on one line, with | and \ escaped.
std::string Cell(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\n' || c == '\r') {
      out += ' ';
    } else if (c == '|' || c == '\\') {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return out;
}

// `text` as a Markdown code span for a table cell.
std::string Code(const std::string& text) {
  std::size_t longest = 0;
  std::size_t run = 0;
  for (char c : text) {
    run = c == '`' ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  const std::string fence(longest + 1, '`');
  std::string out;
  for (char c : text) {
    if (c == '\n' || c == '\r') {
      out += ' ';
    } else {
      if (c == '|') out += '\\';
      out += c;
    }
  }
  const bool pad = !out.empty() && (out.front() == '`' || out.back() == '`');
  return fence + (pad ? " " : "") + out + (pad ? " " : "") + fence;
}

std::string Summary(const ReportInput& input, const std::vector<Tile>& tiles) {
  std::ostringstream md;
  md << "# Picture report";
  if (!input.scenario.empty()) md << " of " << Code(input.scenario);
  md << "\n\n";
  if (!input.description.empty()) md << input.description << "\n\n";
  md << "kivrun exit code: " << input.exit_code << "\n\n";

  md << "## Summary\n\n";
  if (input.summary.empty()) {
    md << "No figures.\n\n";
  } else {
    md << "| Figure | Value |\n|---|---|\n";
    for (const auto& [figure, value] : input.summary) {
      md << "| " << Cell(figure) << " | " << Cell(value) << " |\n";
    }
    md << "\n";
  }

  if (!input.problems.empty()) {
    md << "## What the calculation nodes refused or failed on\n\n";
    for (const std::string& problem : input.problems) md << "- " << Cell(problem) << "\n";
    md << "\n";
  }

  md << "## Pictures\n\n";
  md << "![pictures](" << kReportSheet << ")\n\n";
  if (input.pictures.empty()) {
    md << "No pictures were written.\n";
    return md.str();
  }
  md << "| # | Path | Label | Size (bytes) | FNV-1a 64 | Writes | Note |\n"
     << "|---:|---|---|---:|---|---:|---|\n";
  for (std::size_t i = 0; i < input.pictures.size(); ++i) {
    const ReportPicture& picture = input.pictures[i];
    const Tile& tile = tiles[i];
    const std::string shown =
        !tile.unreadable.empty() ? "cannot read: " + tile.unreadable : tile.caption;
    md << "| " << i + 1 << " | " << Code(picture.path) << " | " << Cell(Label(picture)) << " | "
       << picture.size << " | " << (picture.hash.empty() ? "-" : Code(picture.hash)) << " | "
       << picture.writes << " | " << Cell(shown) << " |\n";
  }
  if (input.versions_not_kept > 0) {
    md << "\n"
       << input.versions_not_kept
       << " later versions of rewritten pictures are not shown: at most 64 a picture are kept.\n";
  }
  return md.str();
}

void WriteFile(const fs::path& path, const char* data, std::size_t size) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out) out.write(data, static_cast<std::streamsize>(size));
  if (out) out.close();
  if (!out) {
    const int error = errno;
    throw std::runtime_error("cannot write " + path.string() +
                             (error != 0 ? std::string(": ") + std::strerror(error) : ""));
  }
}

}  // namespace

void WriteReport(const std::string& dir, const ReportInput& input) {
  const fs::path folder(dir);
  // Only the folder itself is made: a missing parent is more likely a typo
  // than a wish for a new tree.
  if (!folder.empty()) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
      error.clear();
      fs::create_directory(folder, error);
      if (error) {
        throw std::runtime_error("cannot make the folder " + dir + ": " + error.message());
      }
    }
  }

  std::vector<Tile> tiles;
  tiles.reserve(input.pictures.size());
  for (const ReportPicture& picture : input.pictures) tiles.push_back(MakeTile(picture));

  const fs::path sheet_path = folder / kReportSheet;
  std::vector<uchar> png;
  try {
    if (!cv::imencode(".png", DrawSheet(input, tiles), png)) png.clear();
  } catch (const cv::Exception&) {
    png.clear();
  }
  if (png.empty()) throw std::runtime_error("cannot write " + sheet_path.string() + ": no PNG");
  WriteFile(sheet_path, reinterpret_cast<const char*>(png.data()), png.size());

  const std::string summary = Summary(input, tiles);
  WriteFile(folder / kReportSummary, summary.data(), summary.size());

  // The same round as one page with plots: report.html.
  reportpage::WriteRoundPage(dir, input);
}

}  // namespace kivrun
