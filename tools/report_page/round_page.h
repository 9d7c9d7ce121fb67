// The round's page: report.html, one self-contained HTML file that shows a
// round as a calibration engineer reads it.
//
// WritePage writes DIR/report.html from what the round knows when it ends:
// the summary rows and refusals (as report.md has them), every picture the
// round wrote (every version of a rewritten one), and the round's event log,
// when DIR/events.jsonl is this round's log. The page holds everything it
// shows: the pictures (WebP, lossless when that stays small, else at a high
// quality with the largest difference stated), the stripe cut's marks over
// each picture of a known laser (a transparent layer drawn by the stripe
// tool's overlay code), the data of the plots as JSON, the page's script and
// style, and the plotting library uPlot. Opened in a browser it fetches
// nothing.
//
// Nothing the round gives can stop the page: a picture that is missing or
// cannot be decoded is shown as such, with why; a log that is missing,
// damaged or another round's is named, and the parts that need it say so.
// All text from the round (descriptions, paths, replies) reaches the page as
// data and is shown as text, never as markup. WritePage throws
// std::runtime_error only when the page cannot be written, naming the file.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_ROUND_PAGE_H_
#define LASERCALI_TOOLS_REPORT_PAGE_ROUND_PAGE_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace reportpage {

enum class Side { kUnknown, kLeft, kRight };

struct PagePicture {
  std::string path;   // the file as the node wrote it
  std::string label;  // what was being taken, e.g. "factory distance 15"
  bool app = false;   // a picture the node's stripe cut ran on
  Side side = Side::kUnknown;
  int64_t size = 0;                  // bytes, from the last write
  std::string hash;                  // FNV-1a 64 of the last write, as the event log shows it
  int writes = 0;                    // how often the round wrote it
  int version = 0;                   // 1, 2, ... a kept version of a rewritten picture; 0 the file
  std::vector<unsigned char> bytes;  // a version's bytes (version > 0)
  std::string reply;                 // the node's acknowledge after a version ("2;257")
};

struct RoundPage {
  std::string scenario;     // the scenario file
  std::string description;  // the scenario's description
  int exit_code = 0;
  std::vector<std::pair<std::string, std::string>> summary;  // rows: figure, value
  std::vector<std::string> problems;  // what the calculation nodes refused or failed on
  int versions_not_kept = 0;
  std::vector<PagePicture> pictures;  // in the order they were first written
  std::string event_log;              // the round's event log, or "" when there is none
};

// The page's file name inside the report folder, and the event log's name
// the page looks for beside it.
inline constexpr char kPageFile[] = "report.html";
inline constexpr char kEventLogFile[] = "events.jsonl";

// The page's HTML.
std::string PageHtml(const RoundPage& round);

// Writes DIR/report.html (DIR must exist).
void WritePage(const std::string& dir, const RoundPage& round);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_ROUND_PAGE_H_
