// The contact sheet of stripe-inspect --sheet: every picture's overlay as a
// labelled thumbnail, on as many pages as the pictures need.
//
// A page is kColumns thumbnails wide and holds at most kPerPage pictures, in
// the order they were added. At its top are a title (which pictures, which
// page) and the legend of the overlay's marks (overlay.h DrawLegend). Each
// tile is the overlay of one picture at half size (kThumbWidth x
// kThumbHeight) with a band under it: the picture's path (its end, when it
// is too long) and the laser and outcome in words, green when the picture
// was cut and orange when it was refused. A picture that was not read is a
// grey tile saying "cannot read", with the reason in the band.
//
// The pages are written as they fill up: each page is encoded and written
// on a thread of its own while the next one fills, up to `writers` pages at
// once, so that only the page being filled and those being written are
// held. Pages are reported written in page order. The first page is the file asked for (sheet.png);
// the others take their page number before the extension (sheet-2.png, sheet-3.png, ...). Every
// page is written with checked writes (picture_output.h); a page that cannot be written throws
// std::runtime_error naming the file and the reason.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_CONTACT_SHEET_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_CONTACT_SHEET_H_

#include <cstddef>
#include <deque>
#include <future>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace stripetool {

namespace sheet {
constexpr int kColumns = 4;
constexpr std::size_t kPerPage = 40;  // 10 rows
constexpr int kThumbWidth = 320;
constexpr int kThumbHeight = 240;
constexpr int kBandHeight = 62;
constexpr int kMargin = 16;
constexpr int kGap = 16;
constexpr int kWidth = 2 * kMargin + kColumns * kThumbWidth + (kColumns - 1) * kGap;
}  // namespace sheet

// One picture on the sheet.
struct SheetTile {
  enum class Kind { kCut, kRefused, kUnreadable };
  std::string path;
  Kind kind = Kind::kUnreadable;
  std::string caption;  // "left: cut at row 300", or why the picture was not read
  cv::Mat thumb;        // kThumbHeight x kThumbWidth, 8-bit BGR; empty when not read
};

// The overlay (a 480 x 640 8-bit BGR picture) shrunk to a thumbnail.
cv::Mat SheetThumbnail(const cv::Mat& overlay);

// The file name of page `page` (from 1) of the sheet `path`: `path` itself
// for page 1, else the page number before the extension ("s.png" page 2:
// "s-2.png").
std::string SheetPageName(const std::string& path, std::size_t page);

// The number of pages `pictures` pictures take (at least 1).
std::size_t SheetPages(std::size_t pictures);

// Draws one page: `tiles` (at most kPerPage) are pictures `first` to
// `first + tiles.size() - 1` (counted from 1) of `total`.
cv::Mat DrawSheetPage(const std::vector<SheetTile>& tiles, std::size_t first, std::size_t total,
                      std::size_t page, std::size_t pages);

class ContactSheet {
 public:
  // A sheet at `path` for `pictures` pictures, writing up to `writers`
  // pages at once.
  ContactSheet(std::string path, std::size_t pictures, unsigned writers = 1);

  ~ContactSheet();
  ContactSheet(const ContactSheet&) = delete;
  ContactSheet& operator=(const ContactSheet&) = delete;

  // Adds the next picture; starts writing its page once the page is full.
  // Throws when an earlier page could not be written.
  void Add(SheetTile tile);
  // Writes the last page when it is not written yet (the one page of a sheet
  // of no pictures says so) and waits until every page is written. Throws
  // when a page could not be written.
  void Finish();

  std::size_t pages() const { return pages_; }
  // The pages written so far.
  const std::vector<std::string>& written() const { return written_; }

 private:
  struct Writing {
    std::string name;
    std::future<void> done;
  };

  void StartPage();
  void WaitForOldestPage();

  std::string path_;
  std::size_t total_;
  std::size_t pages_;
  unsigned writers_;
  std::size_t added_ = 0;
  std::size_t started_ = 0;       // pages drawn and handed to be written
  std::vector<SheetTile> tiles_;  // of the page being filled
  std::deque<Writing> writing_;   // the pages being written, oldest first
  std::vector<std::string> written_;
};

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_CONTACT_SHEET_H_
