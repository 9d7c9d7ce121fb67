// The stripe cut against its plain reference (tests/support/stripecut_reference.h):
// the same StripeCut in every field, floats bit for bit, on the test pictures
// of the unit tests and on thousands of random pictures, in both walks.
//
// Random pictures come from one run seed, printed at the start; to replay a
// run, set LASERCALI_STRIPECUT_SEED to it. LASERCALI_STRIPECUT_PICTURES sets
// how many pictures (default 10000, as ctest runs it on every target; 1000
// in the sanitizer build; 2500 when LASERCALI_EMULATED is set, for a quicker
// run by hand under an emulator).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "src/stripecut.h"
#include "tests/support/random_stripe_pictures.h"
#include "tests/support/stripe_pictures.h"
#include "tests/support/stripecut_compare.h"
#include "tests/support/stripecut_reference.h"

namespace {

using kivplugcali::StripeCut;
using kivplugcali::StripeCutStop;

constexpr uint64_t kDefaultSeed = 20240611;
constexpr long kDefaultPictures = 10000;
constexpr long kEmulatedPictures = 2500;

// The walks: the left laser's, the right laser's, and other modes, which walk
// from the right too.
constexpr int kLeft = kivplugcali::kStripeWalkLeft;
constexpr int kRight = kivplugcali::kStripeWalkRight;
constexpr int kOtherModes[] = {0, 2, -1};

// The difference between the two cuts of `picture`, or "" when none. `reused`
// is a result the cut has filled before, with the previous picture.
std::string CutDifference(const cv::Mat& picture, int mode, StripeCut* reused) {
  StripeCut expected;
  stripecut_reference::CutStripe(picture, mode, &expected);
  kivplugcali::CutStripe(picture, mode, reused);
  std::string difference = testsupport::StripeCutDifference(expected, *reused);
  if (!difference.empty()) return "with a reused result:\n" + difference;
  StripeCut fresh;
  kivplugcali::CutStripe(picture, mode, &fresh);
  difference = testsupport::StripeCutDifference(expected, fresh);
  if (!difference.empty()) return "with a fresh result:\n" + difference;
  return "";
}

// --- The test pictures of the unit tests ------------------------------------------

cv::Mat StripeFromBottom(const std::vector<double>& centres, int bottom = 479,
                         cv::Mat picture = testsupport::BlankPicture()) {
  testsupport::PaintStripe(picture, bottom, centres);
  return picture;
}

std::vector<std::pair<std::string, cv::Mat>> UnitTestPictures() {
  using testsupport::JumpCentres;
  std::vector<std::pair<std::string, cv::Mat>> pictures;
  for (int value : {0, 9, 10, 79, 80, 99, 100, 101, 255}) {
    pictures.emplace_back("blank " + std::to_string(value),
                          testsupport::BlankPicture(static_cast<uint8_t>(value)));
  }
  pictures.emplace_back("patterned dark", testsupport::PatternedDarkPicture());
  pictures.emplace_back("bent stripe", testsupport::BentStripePicture());
  pictures.emplace_back("noisy bent stripe 1", testsupport::NoisyBentStripePicture(1));
  pictures.emplace_back("noisy bent stripe 7", testsupport::NoisyBentStripePicture(7));
  pictures.emplace_back("two stripes", testsupport::TwoStripePicture());
  pictures.emplace_back("empty 1", testsupport::EmptyPicture(1));
  pictures.emplace_back("empty 5", testsupport::EmptyPicture(5));

  // Painted stripes as the rule-by-rule tests paint them.
  pictures.emplace_back("49 upright points", StripeFromBottom(std::vector<double>(49, 300.0)));
  pictures.emplace_back("50 upright points", StripeFromBottom(std::vector<double>(50, 300.0)));
  pictures.emplace_back("100 upright points", StripeFromBottom(std::vector<double>(100, 300.0)));
  for (double after : {305.0, 305.5, 306.0, 306.5}) {
    for (int jump_at : {2, 3, 26, 27}) {
      for (int count : {100, 109, 110}) {
        pictures.emplace_back("jump to " + std::to_string(after) + " at " +
                                  std::to_string(jump_at) + ", " + std::to_string(count),
                              StripeFromBottom(JumpCentres(count, jump_at, 300, after)));
      }
    }
  }
  std::vector<double> shallow;
  for (int j = 0; j < 200; ++j) shallow.push_back(200 + 0.5 * j);
  pictures.emplace_back("straight shallow stripe", StripeFromBottom(shallow));
  for (double moved : {303.0, 303.5, 304.0}) {
    std::vector<double> centres(100, 300.0);
    for (int j = 41; j <= 49; ++j) centres[j] = moved;
    pictures.emplace_back("moved neighbours " + std::to_string(moved), StripeFromBottom(centres));
  }
  for (int gap : {7, 8}) {
    cv::Mat picture = StripeFromBottom(std::vector<double>(41, 300.0));
    testsupport::PaintStripe(picture, 439 - gap - 1, std::vector<double>(60, 300.0));
    pictures.emplace_back("gap of " + std::to_string(gap), picture);
  }
  pictures.emplace_back(
      "cut picture, patterned",
      StripeFromBottom(JumpCentres(110, 3, 300, 306), 479, testsupport::PatternedDarkPicture()));
  pictures.emplace_back("highest cut line", StripeFromBottom(JumpCentres(110, 3, 300, 306), 111,
                                                             testsupport::PatternedDarkPicture()));
  // Peaks at the walks' first and last columns.
  cv::Mat edges = testsupport::BlankPicture();
  testsupport::PaintRun(edges, 300, 0, {100, 200, 150, 5});
  testsupport::PaintRun(edges, 301, 637, {80, 200, 200});
  testsupport::PaintRun(edges, 302, 1, {200, 200, 80});
  testsupport::PaintRun(edges, 303, 635, {100, 220, 200, 200, 250});
  testsupport::PaintRun(edges, 304, 1, {200, 200, 220, 100});
  pictures.emplace_back("edge peaks", edges);
  cv::Mat two_in_row = testsupport::BlankPicture();
  testsupport::PaintRun(two_in_row, 300, 300, {80, 150, 100, 9, 80, 150, 100});
  pictures.emplace_back("dark gap between peaks", two_in_row);

  const std::size_t drawn = pictures.size();
  for (std::size_t i = 0; i < drawn; ++i) {
    pictures.emplace_back(pictures[i].first + ", mirrored",
                          testsupport::Mirrored(pictures[i].second));
  }
  return pictures;
}

TEST(StripeCutDiffTest, UnitTestPicturesInEveryWalk) {
  StripeCut reused;
  int compared = 0;
  for (const auto& [name, picture] : UnitTestPictures()) {
    std::vector<int> modes = {kLeft, kRight};
    modes.insert(modes.end(), std::begin(kOtherModes), std::end(kOtherModes));
    for (int mode : modes) {
      const std::string difference = CutDifference(picture, mode, &reused);
      EXPECT_EQ(difference, "") << name << ", mode " << mode;
      ++compared;
    }
  }
  EXPECT_GT(compared, 300);
}

// --- Random pictures --------------------------------------------------------------------

uint64_t RunSeed() {
  const char* text = std::getenv("LASERCALI_STRIPECUT_SEED");
  return text && *text ? std::strtoull(text, nullptr, 0) : kDefaultSeed;
}

long PictureCount() {
  if (const char* text = std::getenv("LASERCALI_STRIPECUT_PICTURES"); text && *text) {
    return std::strtol(text, nullptr, 10);
  }
  const char* emulated = std::getenv("LASERCALI_EMULATED");
  return emulated && *emulated && std::string(emulated) != "0" ? kEmulatedPictures
                                                               : kDefaultPictures;
}

const char* StopName(StripeCutStop stop) {
  switch (stop) {
    case StripeCutStop::kCut:
      return "cut";
    case StripeCutStop::kTwoStripes:
      return "two stripes";
    case StripeCutStop::kTooFewPoints:
      return "too few points";
    case StripeCutStop::kNoCutLine:
      return "no cut line";
    case StripeCutStop::kCutRefused:
      return "cut refused";
  }
  return "?";
}

TEST(StripeCutDiffTest, RandomPicturesInBothWalks) {
  const uint64_t seed = RunSeed();
  const long count = PictureCount();
  std::cout << "stripe cut differential test: seed " << seed << " (LASERCALI_STRIPECUT_SEED), "
            << count << " pictures, each in both walks" << std::endl;
  const auto start = std::chrono::steady_clock::now();

  StripeCut reused;
  std::map<StripeCutStop, long> stops;
  long points = 0;
  int failures = 0;
  for (long i = 0; i < count && failures < 5; ++i) {
    const uint64_t picture_seed = testsupport::RandomPictureSeed(seed, static_cast<uint64_t>(i));
    const testsupport::RandomStripePicture made =
        testsupport::MakeRandomStripePicture(picture_seed);
    // The right walk in mode 8 mostly, sometimes in another mode of its own.
    const int right = i % 5 == 4 ? kOtherModes[(i / 5) % 3] : kRight;
    for (int mode : {kLeft, right}) {
      const std::string difference = CutDifference(made.picture, mode, &reused);
      if (!difference.empty()) {
        ++failures;
        ADD_FAILURE() << "picture " << i << " of run seed " << seed << " (picture seed "
                      << picture_seed << "), mode " << mode << ": " << made.recipe << "\n"
                      << difference;
      }
      ++stops[reused.stop];
      points += static_cast<long>(reused.points.size());
    }
  }

  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << count << " pictures, " << 2 * count << " cuts compared in " << seconds << " s;";
  for (const auto& [stop, cuts] : stops) std::cout << " " << StopName(stop) << " " << cuts;
  std::cout << "; " << points << " points" << std::endl;

  // The pictures reach every outcome of the cut, each in at least one cut in
  // a hundred (one in five hundred for the rarer refusals).
  EXPECT_GE(stops[StripeCutStop::kCut] * 100, 2 * count);
  EXPECT_GE(stops[StripeCutStop::kTwoStripes] * 100, 2 * count);
  EXPECT_GE(stops[StripeCutStop::kTooFewPoints] * 100, 2 * count);
  EXPECT_GE(stops[StripeCutStop::kNoCutLine] * 500, 2 * count);
  EXPECT_GE(stops[StripeCutStop::kCutRefused] * 500, 2 * count);
}

}  // namespace
