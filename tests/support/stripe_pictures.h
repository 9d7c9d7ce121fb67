// Laser stripe pictures (480 x 640, one 8-bit channel) built by hand.
//
// Two kinds: exact pictures for rule-by-rule tests, painted pixel by pixel or
// one stripe point per row with a known centre; and rendered pictures that
// look like what the camera sees (a stripe bent where the floor meets the
// wall, ambient light, a reflection), for benchmarks, tools and sanity tests.
// Needs only OpenCV core.
#ifndef LASERCALI_TESTS_SUPPORT_STRIPE_PICTURES_H_
#define LASERCALI_TESTS_SUPPORT_STRIPE_PICTURES_H_

#include <cstdint>
#include <initializer_list>
#include <opencv2/core.hpp>
#include <vector>

namespace testsupport {

constexpr int kPictureRows = 480;
constexpr int kPictureCols = 640;

// A picture with every pixel at `value`.
cv::Mat BlankPicture(uint8_t value = 0);

// A dark picture whose pixels run through 1 to 8 in a pattern that differs
// from row to row and column to column, so that a misplaced copy shows.
cv::Mat PatternedDarkPicture();

// Writes `values` into `row` from column `col` on, to the right.
void PaintRun(cv::Mat& picture, int row, int col, std::initializer_list<int> values);

// Paints a narrow stripe section on `row` whose brightness-weighted centre is
// `centre`, a whole or half column: 150 200 150 around a whole column,
// 150 200 200 150 around a half one. Any walk finds one peak in it.
void PaintStripePoint(cv::Mat& picture, int row, double centre);

// Paints one stripe section per row, going up: centres[j] on row bottom_row - j.
void PaintStripe(cv::Mat& picture, int bottom_row, const std::vector<double>& centres);

// `count` centres: `before` for the first `jump_at`, then `after`.
std::vector<double> JumpCentres(int count, int jump_at, double before, double after);

// The picture with its columns in reverse order (column c becomes 639 - c):
// the right laser's walk meets it as the left laser's walk meets `picture`.
cv::Mat Mirrored(const cv::Mat& picture);

// Column c of a picture after Mirrored.
inline int MirroredCol(int col) { return kPictureCols - 1 - col; }

// Adds a laser stripe along the polyline through `vertices` (x = column,
// y = row): brightness `peak` on the line, falling off with the distance d
// from it as exp(-d^2 / (2 sigma^2)). Adds to what the picture holds,
// saturating at 255.
void RenderStripe(cv::Mat& picture, const std::vector<cv::Point2f>& vertices, float peak,
                  float sigma);

// The row at which the rendered stripes below bend from the floor onto the wall.
constexpr int kBendRow = 300;

// A clean bent stripe on a dark floor: slanted from column 220 at the bottom
// to column 283 at the bend (row 300), then nearly upright up the wall to
// row 40.
cv::Mat BentStripePicture();

// The bent stripe under ambient light: a brightness gradient of about 15 to
// 70 and sensor noise of +-8, from a fixed `seed`.
cv::Mat NoisyBentStripePicture(uint32_t seed = 1);

// The bent stripe and, to its right on the wall, a fainter reflection from
// row 280 up to row 150: two stripes in those rows.
cv::Mat TwoStripePicture();

// No stripe: sensor noise of 0 to 6 only.
cv::Mat EmptyPicture(uint32_t seed = 1);

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_STRIPE_PICTURES_H_
