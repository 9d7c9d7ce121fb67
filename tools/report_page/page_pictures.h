// A picture of the round as the page shows it: the picture itself, the
// stripe cut's marks as a layer of their own, and what the cut found.
//
// ShowPicture reads the file (or a kept version's bytes) with the same
// limits as the picture report (at most 16 MiB and 4096 pixels a side, a
// BMP or PNG header that tells the truth), and says why when it cannot. The
// picture goes into the page as PNG, exactly, when that takes at most
// kLosslessLimit bytes (cut pictures, clean pictures), otherwise as JPEG at
// quality kLossyQuality, with the largest difference from the file's grey
// levels measured and given. Camera noise does not compress without loss: a
// factory picture takes about 150 kB as PNG and 38 kB as JPEG at quality 92,
// within 10 grey levels; twenty of them exactly would take the round's
// folder past 10 MB. (WebP at quality 95 would be within 7 grey levels, 25 %
// larger and thirty times slower to make.)
//
// A 640 x 480 8-bit picture of a known laser (the app's stripe pictures, the
// factory pictures in left/ and right/, the distance check's dis_left and
// dis_right, LL and RR) is cut by the node's stripe cut, walking from that
// laser's side, and OverlayLayer draws the marks as stripe-inspect --overlay
// draws them, on a transparent ground: over the picture dimmed to 60 % it
// gives stripe-inspect's overlay. The page shows the layer on request. A
// picture the cut made (labelled "..., cut picture" by kivrun's summary) is
// not cut again.
#ifndef LASERCALI_TOOLS_REPORT_PAGE_PAGE_PICTURES_H_
#define LASERCALI_TOOLS_REPORT_PAGE_PAGE_PICTURES_H_

#include <cstddef>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "src/stripecut.h"
#include "tools/report_page/round_page.h"

namespace reportpage {

inline constexpr std::size_t kLosslessLimit = 64 * 1024;
inline constexpr int kLossyQuality = 92;
// How much of the picture stays when the marks are shown over it.
inline constexpr double kDimmed = 0.6;

struct StripeFindings {
  Side side = Side::kUnknown;  // the laser the cut walked for
  std::string outcome;  // "cut", "two_stripes", "too_few_points", "no_cut_line", "cut_refused"
  std::string words;    // stripeinspect::DescribeCut
  int result = 2;       // the node's result code
  int points = 0;
  int cut_line = -1;    // -1: none found
  int cut_column = -1;  // the stripe's column where the cut line was found
  int num2 = 0, G = 0;
};

struct ShownPicture {
  std::string problem;  // why it cannot be shown; "" when it can
  int width = 0, height = 0, channels = 0;
  std::string image;           // data: URI of the PNG or JPEG
  bool exact = false;          // lossless
  int largest_difference = 0;  // grey levels, when not exact
  bool cut = false;            // the stripe cut ran: overlay and findings are set
  std::string overlay;         // data: URI of the marks' layer (PNG with alpha)
  StripeFindings findings;
  // Why the stripe cut did not run on a readable picture, or "".
  std::string no_cut;
};

// The laser of a picture the round wrote: `side` when known, else what its
// folder or name says (left/, right/, dis_left, dis_right, LL, RR, L, R).
Side SideOf(const PagePicture& picture);

ShownPicture ShowPicture(const PagePicture& picture);

// The marks of `cut` on a 480 x 640 transparent ground (8-bit BGRA): opaque
// where stripe-inspect draws a mark, partly transparent where its marks are
// blended with the picture (the kept region's tint, smoothed circles).
cv::Mat OverlayLayer(const kivplugcali::StripeCut& cut);

// `bytes` in base64 (RFC 4648, with padding).
std::string Base64(const std::vector<unsigned char>& bytes);

// Why a picture file cannot be read, or "" with *bytes filled in.
std::string ReadPictureFile(const std::string& path, std::vector<unsigned char>* bytes);
// Why picture bytes cannot be decoded, or "" with *picture filled in.
std::string DecodePicture(const std::vector<unsigned char>& bytes, cv::Mat* picture);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_PAGE_PICTURES_H_
