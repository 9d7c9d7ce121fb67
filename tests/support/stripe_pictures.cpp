#include "tests/support/stripe_pictures.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace testsupport {

namespace {

// A small deterministic generator, the same on every platform.
class XorShift {
 public:
  explicit XorShift(uint32_t seed) : state_(seed ? seed : 0x9E3779B9u) {}
  uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  // A whole number from lo to hi.
  int Between(int lo, int hi) { return lo + static_cast<int>(Next() % (hi - lo + 1)); }

 private:
  uint32_t state_;
};

float DistanceToSegment(float px, float py, const cv::Point2f& a, const cv::Point2f& b) {
  const float vx = b.x - a.x;
  const float vy = b.y - a.y;
  const float len2 = vx * vx + vy * vy;
  float t = len2 > 0 ? ((px - a.x) * vx + (py - a.y) * vy) / len2 : 0.0f;
  t = std::clamp(t, 0.0f, 1.0f);
  const float dx = px - (a.x + t * vx);
  const float dy = py - (a.y + t * vy);
  return std::sqrt(dx * dx + dy * dy);
}

const std::vector<cv::Point2f>& BentStripe() {
  static const std::vector<cv::Point2f> vertices = {
      {213.0f, 500.0f}, {283.0f, static_cast<float>(kBendRow)}, {288.0f, 40.0f}};
  return vertices;
}

}  // namespace

cv::Mat BlankPicture(uint8_t value) {
  return cv::Mat(kPictureRows, kPictureCols, CV_8UC1, cv::Scalar(value));
}

cv::Mat PatternedDarkPicture() {
  cv::Mat picture = BlankPicture();
  for (int r = 0; r < kPictureRows; ++r) {
    for (int c = 0; c < kPictureCols; ++c) {
      picture.at<uint8_t>(r, c) = static_cast<uint8_t>(1 + (r * 7 + c * 3) % 8);
    }
  }
  return picture;
}

void PaintRun(cv::Mat& picture, int row, int col, std::initializer_list<int> values) {
  for (int v : values) {
    if (col < 0 || col >= kPictureCols) throw std::out_of_range("PaintRun past the picture");
    picture.at<uint8_t>(row, col++) = static_cast<uint8_t>(v);
  }
}

void PaintStripePoint(cv::Mat& picture, int row, double centre) {
  const int col = static_cast<int>(std::floor(centre));
  if (centre == col) {
    PaintRun(picture, row, col - 1, {150, 200, 150});
  } else if (centre - col == 0.5) {
    PaintRun(picture, row, col - 1, {150, 200, 200, 150});
  } else {
    throw std::invalid_argument("PaintStripePoint: centre must be a whole or half column");
  }
}

void PaintStripe(cv::Mat& picture, int bottom_row, const std::vector<double>& centres) {
  for (std::size_t j = 0; j < centres.size(); ++j) {
    PaintStripePoint(picture, bottom_row - static_cast<int>(j), centres[j]);
  }
}

std::vector<double> JumpCentres(int count, int jump_at, double before, double after) {
  std::vector<double> centres(count, after);
  std::fill(centres.begin(), centres.begin() + std::min(count, jump_at), before);
  return centres;
}

cv::Mat Mirrored(const cv::Mat& picture) {
  cv::Mat mirrored;
  cv::flip(picture, mirrored, 1);
  return mirrored;
}

void RenderStripe(cv::Mat& picture, const std::vector<cv::Point2f>& vertices, float peak,
                  float sigma) {
  const float reach = 4.0f * sigma;
  cv::Mat light(picture.size(), CV_32FC1, cv::Scalar(0));
  for (std::size_t s = 0; s + 1 < vertices.size(); ++s) {
    const cv::Point2f& a = vertices[s];
    const cv::Point2f& b = vertices[s + 1];
    const int r0 = std::max(0, static_cast<int>(std::floor(std::min(a.y, b.y) - reach)));
    const int r1 =
        std::min(kPictureRows - 1, static_cast<int>(std::ceil(std::max(a.y, b.y) + reach)));
    const int c0 = std::max(0, static_cast<int>(std::floor(std::min(a.x, b.x) - reach)));
    const int c1 =
        std::min(kPictureCols - 1, static_cast<int>(std::ceil(std::max(a.x, b.x) + reach)));
    for (int r = r0; r <= r1; ++r) {
      for (int c = c0; c <= c1; ++c) {
        const float d = DistanceToSegment(static_cast<float>(c), static_cast<float>(r), a, b);
        const float v = peak * std::exp(-d * d / (2.0f * sigma * sigma));
        float& cell = light.at<float>(r, c);
        cell = std::max(cell, v);
      }
    }
  }
  for (int r = 0; r < kPictureRows; ++r) {
    for (int c = 0; c < kPictureCols; ++c) {
      const float sum = picture.at<uint8_t>(r, c) + std::round(light.at<float>(r, c));
      picture.at<uint8_t>(r, c) = static_cast<uint8_t>(std::min(255.0f, sum));
    }
  }
}

cv::Mat BentStripePicture() {
  cv::Mat picture = BlankPicture();
  RenderStripe(picture, BentStripe(), 230.0f, 1.3f);
  return picture;
}

cv::Mat NoisyBentStripePicture(uint32_t seed) {
  XorShift random(seed);
  cv::Mat picture = BlankPicture();
  for (int r = 0; r < kPictureRows; ++r) {
    for (int c = 0; c < kPictureCols; ++c) {
      const int ambient = 15 + (40 * c) / kPictureCols + (15 * (kPictureRows - r)) / kPictureRows;
      picture.at<uint8_t>(r, c) = static_cast<uint8_t>(ambient + random.Between(-8, 8));
    }
  }
  RenderStripe(picture, BentStripe(), 200.0f, 1.3f);
  return picture;
}

cv::Mat TwoStripePicture() {
  cv::Mat picture = BentStripePicture();
  RenderStripe(picture, {{420.0f, 280.0f}, {423.0f, 150.0f}}, 170.0f, 1.5f);
  return picture;
}

cv::Mat EmptyPicture(uint32_t seed) {
  XorShift random(seed);
  cv::Mat picture = BlankPicture();
  for (int r = 0; r < kPictureRows; ++r) {
    for (int c = 0; c < kPictureCols; ++c) {
      picture.at<uint8_t>(r, c) = static_cast<uint8_t>(random.Between(0, 6));
    }
  }
  return picture;
}

}  // namespace testsupport
