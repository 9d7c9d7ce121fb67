// What stripe-inspect found in one picture, and the forms it shows it in:
// the report of one picture (text), one line of a list (text), a JSON object
// on one line, a CSV row; and the summary of a list.
//
// Beside the node's cut, each picture that was read is judged the way the
// calculation nodes judge a picture before they fit a plane to it
// (calc::JudgeStripe over its ridge centres): usable, or one that would
// spoil a calibration, with the same reason words: "no stripe (...)",
// "saturated stripe (...)", "too blurred (...)".
//
// An Inspection is made from the stripe cut of a picture that was read
// (Describe) or from the message of a picture that was not (Unreadable). The
// JSON object and the CSV row have the same fields for both, so that every
// line of a JSON list and every row of a CSV list has the same keys and
// columns; the values a picture does not have are null in JSON and empty in
// CSV. docs/stripe-tool.md lists them.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_FINDINGS_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_FINDINGS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tools/calc/ridge_centres.h"

namespace stripetool {

struct Inspection {
  std::string image;  // the picture's path, as given or found in a folder
  int mode = kivplugcali::kStripeWalkLeft;
  uint16_t distance = 20;
  uint16_t delt = 0;
  bool read = false;
  std::string error;  // why the picture was not read (when !read)

  // When read: the node's result code, the outcome as a key ("cut",
  // "two_stripes", "too_few_points", "no_cut_line", "cut_refused") and in
  // words (overlay.h DescribeCut).
  int result = 2;
  std::string outcome = "unreadable";
  std::string words;
  std::optional<int> points, num2, G, cut_line, two_stripe_row;
  int first_peak = -1;
  int second_peak = -1;
  int slope_checks = 0;
  int steep_checks = 0;
  int stray_points = 0;
  std::optional<std::string> file;  // the cut picture's path as the node would write it

  // When read and judged: "usable", "no_stripe", "saturated" or
  // "too_blurred", and the reason in the calculation nodes' words ("" when
  // usable). "" when not judged.
  std::string calibration;
  std::string calibration_reason;
};

// The key of a verdict: "usable", "no_stripe", "saturated", "too_blurred".
std::string VerdictKey(calc::StripeVerdict verdict);

// Judges the stripe of a picture (8-bit gray, `stride` bytes a row) for a
// calibration and keeps the verdict in `inspection`.
void JudgeForCalibration(const uint8_t* pixels, int width, int height, int stride,
                         Inspection* inspection);

// The inspection of a picture that was cut with `mode`. `node_folder` is the
// folder the node stores that laser's cut pictures in (/tmp/left, /tmp/right).
Inspection Describe(const kivplugcali::StripeCut& cut, const std::string& image, int mode,
                    uint16_t distance, uint16_t delt, const std::string& node_folder);

// A picture that was not read, with the message that says why.
Inspection Unreadable(const std::string& image, int mode, uint16_t distance, uint16_t delt,
                      const std::string& error);

// "left" or "right".
std::string SideName(int mode);

// The picture the node stores before every cut: /tmp/LL.bmp or /tmp/RR.bmp.
std::string ScanFile(const Inspection& inspection);

// The report of one picture that was read, several lines of text.
std::string TextReport(const Inspection& inspection);

// The JSON object of one picture, on one line, with its newline.
std::string JsonLine(const Inspection& inspection);

// The header of the CSV list and one picture's row, each with its newline.
// Fields are quoted when they hold a comma, a quote, a CR or an LF.
std::string CsvHeader();
std::string CsvRow(const Inspection& inspection);

// One picture as a line of the text list: the path padded to `path_width`,
// the laser, and the outcome in words or why it was not read.
std::string ListLine(const Inspection& inspection, std::size_t path_width);
// The header line of the text list, in the same columns.
std::string ListHeader(std::size_t path_width);

// The counts of a list, taken in the list's order; Text() is the summary
// printed after the text list: counts per outcome, then the pictures that
// were refused and those that were not read, with why.
class Tally {
 public:
  explicit Tally(std::size_t path_width) : path_width_(path_width) {}
  void Add(const Inspection& inspection);
  // Files in the folders that were passed over (not named .bmp or .png).
  void PassedOver(std::size_t files) { passed_over_ = files; }
  std::size_t pictures() const { return pictures_; }
  std::size_t unread() const { return unread_.size(); }
  std::string Text() const;

 private:
  std::size_t path_width_;
  std::size_t pictures_ = 0;
  std::size_t passed_over_ = 0;
  std::size_t cut_ = 0, two_stripes_ = 0, too_few_points_ = 0, no_cut_line_ = 0, cut_refused_ = 0;
  std::vector<std::string> refused_;  // their list lines
  std::vector<std::string> spoiling_;  // pictures that would spoil a calibration, with why
  std::vector<std::string> unread_;   // their messages
};

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_FINDINGS_H_
