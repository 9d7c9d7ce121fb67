#include "tools/report_page/page_pictures.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "platform/sunxi_cam/picture_file.h"
#include "tools/stripe_tool/overlay.h"

namespace reportpage {

namespace {

namespace fs = std::filesystem;
using kivplugcali::StripeCutStop;

constexpr int64_t kMaxPictureSide = 4096;
constexpr std::uintmax_t kMaxPictureBytes = 16 * 1024 * 1024;

// Any decoded picture as 8-bit, gray or BGR, for showing.
cv::Mat ForShowing(const cv::Mat& picture) {
  cv::Mat eight;
  if (picture.depth() == CV_8U) {
    eight = picture;
  } else if (picture.depth() == CV_16U) {
    picture.convertTo(eight, CV_8U, 1.0 / 256);
  } else {
    cv::normalize(picture, eight, 0, 255, cv::NORM_MINMAX, CV_8U);
  }
  cv::Mat shown;
  if (eight.channels() == 4) {
    cv::cvtColor(eight, shown, cv::COLOR_BGRA2BGR);
  } else if (eight.channels() == 1 || eight.channels() == 3) {
    shown = eight;
  } else {
    cv::extractChannel(eight, shown, 0);
  }
  return shown;
}

std::string DataUri(const char* type, const std::vector<unsigned char>& bytes) {
  return std::string("data:") + type + ";base64," + Base64(bytes);
}

// The picture as PNG when that is small enough, else as JPEG with the
// largest difference it makes. The JPEG comes first: it takes a few
// milliseconds, and when it is large the picture is noisy and its PNG
// larger still, which is then not made at all.
void Encode(const cv::Mat& shown, ShownPicture* out) {
  std::vector<unsigned char> lossy, exact;
  cv::imencode(".jpg", shown, lossy, {cv::IMWRITE_JPEG_QUALITY, kLossyQuality});
  if (lossy.size() <= kLosslessLimit / 4) {
    cv::imencode(".png", shown, exact, {cv::IMWRITE_PNG_COMPRESSION, 6});
  }
  if (!exact.empty() && exact.size() <= kLosslessLimit) {
    out->image = DataUri("image/png", exact);
    out->exact = true;
    return;
  }
  const cv::Mat back =
      cv::imdecode(lossy, shown.channels() == 1 ? cv::IMREAD_GRAYSCALE : cv::IMREAD_COLOR);
  double largest = 255;
  if (back.size() == shown.size() && back.type() == shown.type()) {
    cv::Mat difference;
    cv::absdiff(back, shown, difference);
    cv::minMaxLoc(difference.reshape(1), nullptr, &largest);
  }
  out->image = DataUri("image/jpeg", lossy);
  out->largest_difference = static_cast<int>(largest);
}

const char* OutcomeKey(StripeCutStop stop) {
  switch (stop) {
    case StripeCutStop::kCut:
      return "cut";
    case StripeCutStop::kTwoStripes:
      return "two_stripes";
    case StripeCutStop::kTooFewPoints:
      return "too_few_points";
    case StripeCutStop::kNoCutLine:
      return "no_cut_line";
    case StripeCutStop::kCutRefused:
      return "cut_refused";
  }
  return "";
}

void Cut(const cv::Mat& picture, Side side, ShownPicture* out) {
  const int mode =
      side == Side::kRight ? kivplugcali::kStripeWalkRight : kivplugcali::kStripeWalkLeft;
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, mode, &cut);
  std::vector<unsigned char> png;
  cv::imencode(".png", OverlayLayer(cut), png, {cv::IMWRITE_PNG_COMPRESSION, 9});
  out->cut = true;
  out->overlay = DataUri("image/png", png);
  StripeFindings& f = out->findings;
  f.side = side;
  f.outcome = OutcomeKey(cut.stop);
  f.words = stripeinspect::DescribeCut(cut);
  f.result = cut.result;
  f.points = static_cast<int>(cut.points.size());
  f.cut_line = cut.cut_found ? cut.cut_line : -1;
  for (const kivplugcali::SlopeCheck& check : cut.checks) {
    if (check.cut) f.cut_column = static_cast<int>(std::lround(cut.points[check.point].x));
  }
  f.num2 = cut.num2;
  f.G = cut.G;
}

}  // namespace

std::string Base64(const std::vector<unsigned char>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned v = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += kDigits[(v >> 6) & 63];
    out += kDigits[v & 63];
  }
  if (i + 1 == bytes.size()) {
    const unsigned v = bytes[i] << 16;
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += "==";
  } else if (i + 2 == bytes.size()) {
    const unsigned v = bytes[i] << 16 | bytes[i + 1] << 8;
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += kDigits[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

std::string ReadPictureFile(const std::string& path, std::vector<unsigned char>* bytes) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return "no such file";
  if (!fs::is_regular_file(status)) return "not a file";
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) return error.message();
  if (size > kMaxPictureBytes) return "larger than 16 MiB";
  if (size == 0) return "empty file";
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::strerror(errno);
  // One read of the whole file (a byte at a time costs a tenth of a second
  // per picture in an unoptimised build); a file cut short meanwhile gives
  // what it still holds.
  bytes->resize(static_cast<std::size_t>(size));
  in.read(reinterpret_cast<char*>(bytes->data()), static_cast<std::streamsize>(size));
  bytes->resize(static_cast<std::size_t>(in.gcount()));
  if (in.bad()) return "read error";
  return "";
}

std::string DecodePicture(const std::vector<unsigned char>& bytes, cv::Mat* picture) {
  if (bytes.empty()) return "empty file";
  if (bytes.size() > kMaxPictureBytes) return "larger than 16 MiB";
  const std::string header =
      sunxi_cam::sim::HeaderProblem(sunxi_cam::sim::ReadPictureHeader(bytes.data(), bytes.size()),
                                    kMaxPictureSide, kMaxPictureSide);
  if (!header.empty()) return header;
  try {
    *picture = cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception&) {
    picture->release();
  }
  if (picture->empty()) return "not a picture: the file is damaged or cut short";
  return "";
}

Side SideOf(const PagePicture& picture) {
  if (picture.side != Side::kUnknown) return picture.side;
  const fs::path path(picture.path);
  const std::string folder = path.parent_path().filename().string();
  const std::string stem = path.stem().string();
  if (folder == "left" || stem == "dis_left" || stem == "LL" || stem == "L") return Side::kLeft;
  if (folder == "right" || stem == "dis_right" || stem == "RR" || stem == "R") return Side::kRight;
  return Side::kUnknown;
}

ShownPicture ShowPicture(const PagePicture& picture) {
  ShownPicture out;
  std::vector<unsigned char> file;
  const std::vector<unsigned char>* bytes = &picture.bytes;
  if (picture.version == 0) {
    out.problem = ReadPictureFile(picture.path, &file);
    bytes = &file;
  }
  cv::Mat decoded;
  if (out.problem.empty()) out.problem = DecodePicture(*bytes, &decoded);
  if (!out.problem.empty()) return out;
  out.width = decoded.cols;
  out.height = decoded.rows;
  out.channels = decoded.channels();
  Encode(ForShowing(decoded), &out);

  const Side side = SideOf(picture);
  const std::string cut_label = "cut picture";
  if (picture.label.size() >= cut_label.size() &&
      picture.label.compare(picture.label.size() - cut_label.size(), cut_label.size(), cut_label) ==
          0) {
    out.no_cut = "what the stripe cut kept of its app picture";
  } else if (decoded.cols != kivplugcali::kStripeCols || decoded.rows != kivplugcali::kStripeRows ||
             decoded.type() != CV_8UC1) {
    out.no_cut = "the stripe cut takes 640 x 480 pictures with one 8-bit channel";
  } else if (side == Side::kUnknown) {
    out.no_cut = "no laser: neither its folder nor its name names one";
  } else {
    Cut(decoded, side, &out);
  }
  return out;
}

cv::Mat OverlayLayer(const kivplugcali::StripeCut& cut) {
  // The marks drawn over a black picture and over a white one, which the
  // overlay dims to kDimmed: where the two agree a mark covers the picture;
  // where they differ by the whole span the picture shows through; in
  // between (the kept region's tint, the smoothed edges of circles) the
  // mark's colour lies over the picture at that weight.
  const int rows = kivplugcali::kStripeRows, cols = kivplugcali::kStripeCols;
  const cv::Mat over_black =
      stripeinspect::DrawOverlay(cv::Mat::zeros(rows, cols, CV_8UC1), cut, "");
  const cv::Mat over_white =
      stripeinspect::DrawOverlay(cv::Mat(rows, cols, CV_8UC1, cv::Scalar(255)), cut, "");
  const double span = 255 * kDimmed;
  cv::Mat layer(rows, cols, CV_8UC4, cv::Scalar(0, 0, 0, 0));
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) {
      const cv::Vec3b b = over_black.at<cv::Vec3b>(r, c);
      const cv::Vec3b w = over_white.at<cv::Vec3b>(r, c);
      int through = 0;  // how much of the picture shows, out of span
      for (int k = 0; k < 3; ++k) through = std::max(through, w[k] - b[k]);
      const double alpha = std::clamp(1 - through / span, 0.0, 1.0);
      if (alpha <= 0) continue;
      cv::Vec4b& out = layer.at<cv::Vec4b>(r, c);
      for (int k = 0; k < 3; ++k) out[k] = cv::saturate_cast<uchar>(b[k] / alpha);
      out[3] = cv::saturate_cast<uchar>(alpha * 255);
    }
  }
  return layer;
}

}  // namespace reportpage
