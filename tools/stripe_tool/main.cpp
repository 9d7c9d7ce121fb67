// stripe-inspect: runs the calibration node's laser stripe cut on picture
// files and reports what the node would do with each. See docs/stripe-tool.md.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "src/caligetpic.h"
#include "src/stripecut.h"
#include "tools/command_line.h"
#include "tools/kivrun/output_file.h"
#include "tools/stripe_tool/contact_sheet.h"
#include "tools/stripe_tool/findings.h"
#include "tools/stripe_tool/in_order.h"
#include "tools/stripe_tool/stripe_options.h"
#include "tools/stripe_tool/overlay.h"
#include "tools/stripe_tool/picture_input.h"
#include "tools/stripe_tool/picture_list.h"
#include "tools/stripe_tool/picture_output.h"
#include "tools/version.h"

namespace {

using kivplugcali::StripeCut;
using stripetool::Inspection;
using stripetool::Options;

constexpr const char* kUsage = R"(Usage: stripe-inspect IMAGE|FOLDER... [options]

Runs the calibration node's laser stripe cut on pictures and reports what the
node would do with each: cut it and store the cut picture, or refuse it (two
stripes, too few points, no cut line). A picture is a BMP or PNG file,
640 x 480 with one 8-bit channel.

One IMAGE: the report of that picture. Several, or a FOLDER, or --csv or
--sheet: a line per picture, in the order given, then a summary: how many
pictures had each outcome, and which were refused or could not be read, and
why. A FOLDER stands for its .bmp and .png files and those of its
subfolders, in name order (numbers by their value: 500.bmp before 1000.bmp).

Each picture is also judged as the calculation nodes judge one before they
fit a laser plane to it: a picture that would spoil a calibration is named
with why, in their words: a saturated stripe, no stripe (none, or one
drowned in the background), or a stripe too blurred, each with its figure.
The report's line calibration, the list's lines and summary, and the JSON
and CSV fields calibration and calibration_reason say it.

Options:
  --side left|right   laser that took the pictures: left walks each row from
                      the left (mode 1), right from the right (mode 8);
                      default: the laser the picture's path names (the last
                      of the words left, right, LL, RR in it, as in
                      /tmp/RR.bmp or right/3000.bmp), else left
  --distance D        working distance of the pictures, 0 to 65535; default 20
  --delt N            offset added to the picture number, 0 to 65535;
                      default 0 (the picture number is D * 100 + N)
  --overlay OUT.png   write a colour picture of the scanned rows, the stripe
                      points, the slope checks, the cut line and the kept
                      region (the report of one IMAGE only)
  --out FILE          write the cut picture exactly as the node stores it
                      (only when the picture is cut; use a .bmp name for the
                      node's file form; the report of one IMAGE only)
  --sheet OUT.png     write a contact sheet: every picture's overlay, with
                      its path and outcome, and a legend of the marks; 40
                      pictures a page: OUT.png, then OUT-2.png, OUT-3.png...
  --json              print each picture as one JSON object on a line
  --csv               print a CSV header, then a row per picture
  -j, --jobs N        inspect N pictures at once, 1 to 256; default: one per
                      processor. The output is the same for every N
  --gray              convert a colour picture to gray before the cut
  -h, --help          show this help and exit
  --version           show the version and exit

Options may come before or after the pictures. A value follows its option as
"--distance 30" or "--distance=30"; D, N and the jobs are plain decimal
digits (no sign, blank, 0x, fraction or exponent). A long option may be
shortened to any prefix that names only it ("--dist" for --distance); "--"
ends the options.

The exit status is 0 when every picture was read and every output written,
whatever the outcome of the cuts; 1 when a picture cannot be read or has the
wrong shape, or an output cannot be written; 2 for bad options.
)";

const std::string& NodeFolder(int mode) {
  return mode == kivplugcali::kStripeWalkLeft ? kivplugcali::left_path : kivplugcali::right_path;
}

// The processors this process may run on.
unsigned Processors() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 0) {
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
  return std::max(1u, std::thread::hardware_concurrency());
}

// After the report, help or version: every byte must have reached standard output.
int StdoutWritten(std::ostream& err, int code) {
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout && !std::ferror(stdout)) return code;
  err << "stripe-inspect: cannot write standard output: " << std::strerror(errno) << "\n";
  return 1;
}

// The report of one picture, with its overlay and cut picture when asked.
int RunOne(const Options& options, std::ostream& err) {
  const std::string& image = options.pictures[0];
  const int mode = stripetool::ModeOf(options, image);
  const cv::Mat picture = stripetool::ReadPicture(image, options.gray);
  StripeCut cut;
  kivplugcali::CutStripe(picture, mode, &cut);
  Inspection inspection =
      stripetool::Describe(cut, image, mode, options.distance, options.delt, NodeFolder(mode));
  stripetool::JudgeForCalibration(picture.data, picture.cols, picture.rows,
                                  static_cast<int>(picture.step), &inspection);

  if (!options.overlay.empty()) {
    const std::string caption = stripetool::SideName(mode) + ": " + inspection.words;
    stripetool::WritePicture(options.overlay, stripeinspect::DrawOverlay(picture, cut, caption),
                             "overlay");
  }
  if (!options.out.empty()) {
    if (cut.result == 0) {
      stripetool::WritePicture(options.out, cut.picture, "cut picture");
    } else {
      err << "stripe-inspect: the picture was not cut; " << options.out << " is not written\n";
    }
  }
  std::cout << (options.json ? stripetool::JsonLine(inspection)
                             : stripetool::TextReport(inspection));
  return 0;
}

// One picture of a list, as the worker threads leave it.
struct Inspected {
  Inspection inspection;
  stripetool::SheetTile tile;  // when there is a sheet
};

Inspected InspectEntry(const Options& options, const stripetool::ListEntry& entry) {
  Inspected done;
  const int mode = stripetool::ModeOf(options, entry.path);
  done.tile.path = entry.path;
  cv::Mat picture;
  std::string problem = entry.problem;
  if (problem.empty()) {
    try {
      picture = stripetool::ReadPicture(entry.path, options.gray);
    } catch (const std::runtime_error& e) {
      problem = e.what();
    }
  }
  if (!problem.empty()) {
    done.inspection =
        stripetool::Unreadable(entry.path, mode, options.distance, options.delt, problem);
    done.tile.caption = problem;
    return done;
  }
  StripeCut cut;
  kivplugcali::CutStripe(picture, mode, &cut);
  done.inspection =
      stripetool::Describe(cut, entry.path, mode, options.distance, options.delt, NodeFolder(mode));
  stripetool::JudgeForCalibration(picture.data, picture.cols, picture.rows,
                                  static_cast<int>(picture.step), &done.inspection);
  if (!options.sheet.empty()) {
    done.tile.kind =
        cut.result == 0 ? stripetool::SheetTile::Kind::kCut : stripetool::SheetTile::Kind::kRefused;
    done.tile.caption = stripetool::SideName(mode) + ": " + done.inspection.words;
    done.tile.thumb = stripetool::SheetThumbnail(stripeinspect::DrawOverlay(picture, cut, ""));
  }
  return done;
}

// "s.png", "s.png and s-2.png", "s.png, s-2.png ... s-7.png (7 pages)".
std::string PageNames(const std::vector<std::string>& pages) {
  if (pages.size() == 1) return pages[0];
  if (pages.size() == 2) return pages[0] + " and " + pages[1];
  return pages[0] + ", " + pages[1] + " ... " + pages.back() + " (" + std::to_string(pages.size()) +
         " pages)";
}

// A line (or row, or JSON object) per picture, in the order given, and the
// summary; the contact sheet when asked.
int RunList(const Options& options, std::ostream& err) {
  if (!options.sheet.empty()) {
    const std::string problem = stripetool::PictureNameProblem(options.sheet, "contact sheet");
    if (!problem.empty()) {
      err << "stripe-inspect: " << problem << "\n";
      return 1;
    }
  }
  const stripetool::PictureList list = stripetool::ListPictures(options.pictures);
  std::size_t path_width = std::string("picture").size();
  for (const auto& entry : list.entries) path_width = std::max(path_width, entry.path.size());
  path_width = std::min<std::size_t>(path_width, 60);

  // Each picture's lines are flushed as they are written, so that a reader
  // sees them come, and a full disk stops the run at once.
  kivrun::OutputFile standard_output(STDOUT_FILENO);
  std::ostream out(&standard_output);
  if (options.csv) {
    out << stripetool::CsvHeader();
  } else if (!options.json) {
    out << stripetool::ListHeader(path_width);
  }

  stripetool::Tally tally(path_width);
  tally.PassedOver(list.passed_over);
  const unsigned jobs = options.jobs > 0 ? options.jobs : Processors();
  // Encoding a page takes longer than inspecting its 40 pictures: pages are
  // written on threads of their own, as many at once as there are jobs, up
  // to four pages (about 14 MB each) held at a time.
  std::optional<stripetool::ContactSheet> sheet;
  if (!options.sheet.empty()) sheet.emplace(options.sheet, list.entries.size(), std::min(jobs, 4u));
  bool sheet_failed = false;
  auto sheet_error = [&](const std::runtime_error& e) {
    err << "stripe-inspect: " << e.what() << "\n";
    sheet_failed = true;
  };

  stripetool::RunInOrder(
      list.entries.size(), jobs, 8 * static_cast<std::size_t>(jobs) + 8,
      [&](std::size_t i) { return InspectEntry(options, list.entries[i]); },
      [&](std::size_t, Inspected&& done) {
        const Inspection& inspection = done.inspection;
        if (options.csv) {
          out << stripetool::CsvRow(inspection);
        } else if (options.json) {
          out << stripetool::JsonLine(inspection);
        } else {
          out << stripetool::ListLine(inspection, path_width);
        }
        out.flush();
        if (!standard_output.ok()) return false;
        tally.Add(inspection);
        if (sheet && !sheet_failed) {
          try {
            sheet->Add(std::move(done.tile));
          } catch (const std::runtime_error& e) {
            sheet_error(e);
          }
        }
        return true;
      });
  if (sheet && !sheet_failed && standard_output.ok()) {
    try {
      sheet->Finish();
    } catch (const std::runtime_error& e) {
      sheet_error(e);
    }
  }
  if (!options.csv && !options.json) {
    out << tally.Text();
    if (sheet && !sheet_failed) out << "contact sheet: " << PageNames(sheet->written()) << "\n";
  }
  if (!standard_output.Close()) {
    err << "stripe-inspect: cannot write standard output: " << standard_output.reason() << "\n";
    return 1;
  }
  if (tally.unread() > 0) {
    err << "stripe-inspect: " << tally.unread() << " of " << tally.pictures()
        << (tally.pictures() == 1 ? " picture" : " pictures") << " could not be read\n";
  }
  return tally.unread() > 0 || sheet_failed ? 1 : 0;
}

// A stream buffer that drops what is written to it.
class Discard : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

int Main(int argc, char** argv, std::ostream& err) {
  std::optional<Options> options;
  try {
    options = stripetool::ParseArgs(argc, argv);
  } catch (const toolcli::UsageError& e) {
    toolcli::ReportUsageError(err, "stripe-inspect", e.what());
    return 2;
  }
  if (!options) {
    std::cout << kUsage;
    return StdoutWritten(err, 0);
  }
  if (options->version) {
    toolcli::PrintVersion(std::cout, "stripe-inspect");
    return StdoutWritten(err, 0);
  }
  try {
    if (options->list) return RunList(*options, err);
    return StdoutWritten(err, RunOne(*options, err));
  } catch (const std::exception& e) {
    err << "stripe-inspect: " << e.what() << "\n";
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // The tool reports read and write failures itself, naming the file. The
  // decoders write their own complaints to std::cerr, without the file's
  // name and from any thread: std::cerr is silenced, and the tool writes to
  // standard error through a stream of its own.
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
  Discard discard;
  std::ostream err(std::cerr.rdbuf());
  std::cerr.rdbuf(&discard);
  const int code = Main(argc, argv, err);
  err.flush();
  std::cerr.rdbuf(err.rdbuf());
  return code;
}
