// The picture report of a round: one PNG contact sheet of every picture the
// round wrote and a Markdown summary beside it. A picture the round
// rewrote and the stripe cut read each time comes once per version, with
// the request that caused it and the node's acknowledge.
//
// WriteReport reads each picture file as it stands when the round is over,
// shrinks it to a labelled thumbnail (path and what was being taken) and
// lays the thumbnails out in rows, in the order the pictures were first
// written. App stripe pictures (the pictures the stripe cut ran on) are shown
// with the stripe cut drawn over them, as stripe-inspect --overlay draws it,
// and the legend of the marks closes the sheet. The title band holds the
// scenario's whole description, over as many lines as it needs.
// A picture that cannot be read is shown as a grey tile saying so. The
// summary lists the round's figures, then the pictures with their labels,
// sizes and content hashes, and links to the sheet.
#ifndef LASERCALI_TOOLS_KIVRUN_REPORT_H_
#define LASERCALI_TOOLS_KIVRUN_REPORT_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kivrun {

struct ReportPicture {
  enum class Side { kNone, kLeft, kRight };
  std::string path;         // the file as the node wrote it
  std::string label;        // what was being taken, e.g. "distance 15", "chessboard"
  bool app = false;         // an app stripe picture: drawn with the stripe cut over it
  Side side = Side::kNone;  // laser of an app picture: the stripe cut's walk direction
  int64_t size = 0;         // bytes, from the last write
  std::string hash;         // FNV-1a 64 of the last write, as the event log shows it
  int writes = 0;           // how often the round wrote it
  // A version of a rewritten picture (/tmp/LL.bmp, /tmp/RR.bmp: the stripe
  // cut runs on each): its number from 1, its bytes as they were, and the
  // node's acknowledge that followed it ("2;20", "2;257"). A picture with
  // version 0 is the file as the round left it, read from `path`.
  int version = 0;
  std::vector<unsigned char> bytes;
  std::string reply;
};

struct ReportInput {
  std::string scenario;                                      // scenario file
  std::string description;                                   // the scenario's description
  int exit_code = 0;                                         // kivrun's exit code
  std::vector<std::pair<std::string, std::string>> summary;  // rows: figure, value
  std::vector<ReportPicture> pictures;                       // in the order they were first written
  int versions_not_kept = 0;  // versions of rewritten pictures beyond those kept
  // What the calculation nodes that refused or failed said, a line each.
  std::vector<std::string> problems;
};

// Names of the two files, inside the report folder.
inline constexpr char kReportSheet[] = "pictures.png";
inline constexpr char kReportSummary[] = "report.md";

// Writes DIR/pictures.png and DIR/report.md, making DIR if it is missing.
// Throws std::runtime_error naming the file or folder it could not write.
void WriteReport(const std::string& dir, const ReportInput& input);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_REPORT_H_
