#include "tests/support/stripecut_compare.h"

#include <cstdint>
#include <cstring>
#include <sstream>
#include <vector>

namespace testsupport {

namespace {

using kivplugcali::SlopeCheck;
using kivplugcali::StripeCut;
using kivplugcali::StripePoint;

uint32_t FloatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}

template <typename T>
void CompareScalar(std::ostringstream& out, const char* field, const T& a, const T& b) {
  if (!(a == b)) out << field << ": " << +a << " vs " << +b << "\n";
}

void ComparePoints(std::ostringstream& out, const std::vector<StripePoint>& a,
                   const std::vector<StripePoint>& b) {
  if (a.size() != b.size()) {
    out << "points: " << a.size() << " vs " << b.size() << " points\n";
    return;
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::memcmp(&a[i], &b[i], sizeof(StripePoint)) != 0) {
      out << "points[" << i << "]: (" << a[i].x << ", " << a[i].y << ") bits " << std::hex
          << FloatBits(a[i].x) << " " << FloatBits(a[i].y) << " vs (" << std::dec << b[i].x << ", "
          << b[i].y << ") bits " << std::hex << FloatBits(b[i].x) << " " << FloatBits(b[i].y)
          << std::dec << "\n";
      return;
    }
  }
}

void CompareRoles(std::ostringstream& out, const StripeCut& a, const StripeCut& b) {
  if (a.roles.size() != b.roles.size()) {
    out << "roles: " << a.roles.size() << " vs " << b.roles.size() << " roles\n";
    return;
  }
  for (std::size_t i = 0; i < a.roles.size(); ++i) {
    if (a.roles[i] != b.roles[i]) {
      out << "roles[" << i << "]: " << static_cast<int>(a.roles[i]) << " vs "
          << static_cast<int>(b.roles[i]) << "\n";
      return;
    }
  }
}

bool SameCheck(const SlopeCheck& a, const SlopeCheck& b) {
  return a.point == b.point && a.dx == b.dx && a.dy == b.dy && a.k1 == b.k1 && a.cut == b.cut;
}

void CompareChecks(std::ostringstream& out, const StripeCut& a, const StripeCut& b) {
  if (a.checks.size() != b.checks.size()) {
    out << "checks: " << a.checks.size() << " vs " << b.checks.size() << " checks\n";
    return;
  }
  for (std::size_t i = 0; i < a.checks.size(); ++i) {
    const SlopeCheck& x = a.checks[i];
    const SlopeCheck& y = b.checks[i];
    if (!SameCheck(x, y)) {
      out << "checks[" << i << "]: point " << x.point << " dx " << x.dx << " dy " << x.dy << " k1 "
          << x.k1 << " cut " << x.cut << " vs point " << y.point << " dx " << y.dx << " dy " << y.dy
          << " k1 " << y.k1 << " cut " << y.cut << "\n";
      return;
    }
  }
}

void ComparePictures(std::ostringstream& out, const cv::Mat& a, const cv::Mat& b) {
  if (a.empty() || b.empty()) {
    if (a.empty() != b.empty()) {
      out << "picture: " << (a.empty() ? "empty" : "present") << " vs "
          << (b.empty() ? "empty" : "present") << "\n";
    }
    return;
  }
  if (a.rows != b.rows || a.cols != b.cols || a.type() != b.type()) {
    out << "picture: " << a.rows << " x " << a.cols << " type " << a.type() << " vs " << b.rows
        << " x " << b.cols << " type " << b.type() << "\n";
    return;
  }
  const std::size_t row_bytes = a.cols * a.elemSize();
  for (int r = 0; r < a.rows; ++r) {
    const uint8_t* x = a.ptr<uint8_t>(r);
    const uint8_t* y = b.ptr<uint8_t>(r);
    if (std::memcmp(x, y, row_bytes) == 0) continue;
    std::size_t c = 0;
    while (x[c] == y[c]) ++c;
    out << "picture: row " << r << " byte " << c << ": " << +x[c] << " vs " << +y[c] << "\n";
    return;
  }
}

}  // namespace

std::string StripeCutDifference(const StripeCut& a, const StripeCut& b) {
  std::ostringstream out;
  CompareScalar(out, "stop", static_cast<int>(a.stop), static_cast<int>(b.stop));
  CompareScalar(out, "result", a.result, b.result);
  CompareScalar(out, "two_stripe_row", a.two_stripe_row, b.two_stripe_row);
  CompareScalar(out, "first_peak_col", a.first_peak_col, b.first_peak_col);
  CompareScalar(out, "second_peak_col", a.second_peak_col, b.second_peak_col);
  ComparePoints(out, a.points, b.points);
  CompareRoles(out, a, b);
  CompareChecks(out, a, b);
  CompareScalar(out, "num2", a.num2, b.num2);
  CompareScalar(out, "G", a.G, b.G);
  CompareScalar(out, "cut_found", a.cut_found, b.cut_found);
  CompareScalar(out, "cut_line", a.cut_line, b.cut_line);
  ComparePictures(out, a.picture, b.picture);
  return out.str();
}

}  // namespace testsupport
