// The picture an engineer looks at to see why the stripe cut did what it did.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_OVERLAY_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_OVERLAY_H_

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "src/stripecut.h"

namespace stripeinspect {

// Colours of the overlay (blue, green, red), named for what they mark.
namespace colour {
const cv::Scalar kScannedRow(255, 128, 0);   // bar at both edges: a row the scan looked at
const cv::Scalar kUnscannedRow(60, 60, 60);  // bar at both edges: a row it never looked at
const cv::Scalar kUnchecked(255, 255, 255);  // point not searched (first or last ten, or too few)
const cv::Scalar kOutside(160, 160, 160);    // point outside the checked rows
const cv::Scalar kStray(0, 0, 255);          // point whose neighbours do not agree
const cv::Scalar kShallow(0, 200, 0);        // slope check, not steep (k1 3 or less)
const cv::Scalar kSteep(0, 165, 255);        // slope check, steep (k1 above 3)
const cv::Scalar kAfterCut(255, 255, 0);     // agreeing point after the cut (num2)
const cv::Scalar kCutCheck(255, 0, 255);     // the seventh steep check in a row
const cv::Scalar kCutLine(0, 0, 255);        // the cut line
const cv::Scalar kKept(0, 255, 0);           // the region stored as the cut picture
const cv::Scalar kRefused(0, 140, 255);      // the region a refused cut line would have kept
const cv::Scalar kTwoStripes(255, 0, 255);   // the row with two peaks
const cv::Scalar kPeak(0, 255, 255);         // its two peaks
}  // namespace colour

// Draws `cut` over `picture` (the 480 x 640 8-bit picture that was cut) and
// returns the colour picture, with `caption` written in its top left corner
// (nothing is written there when `caption` is empty).
cv::Mat DrawOverlay(const cv::Mat& picture, const kivplugcali::StripeCut& cut,
                    const std::string& caption);

// One kind of mark DrawOverlay draws, as a legend shows it.
struct OverlayMark {
  enum class Shape {
    kEdgeBar,    // a bar at the picture's edge
    kTick,       // a short tick on a point's row
    kWideTick,   // a wider tick (a slope check)
    kCircle,     // a circle around a point
    kLine,       // a line across the picture
    kBox,        // an outline
    kTintedBox,  // a tinted box with an outline
  };
  cv::Scalar colour;
  Shape shape;
  const char* words;  // what it means, in a few words
};

// Every kind of mark DrawOverlay draws, in the order of the overlay's table
// in docs/stripe-tool.md. Every colour of `colour` is among them; red and
// magenta mean two marks each, told apart by their shape.
const std::vector<OverlayMark>& OverlayMarks();

// The legend of the overlay: every mark of OverlayMarks drawn as the overlay
// draws it (circles without smoothing, so each shows its exact colour),
// followed by its words, in as many rows as `width` pixels need. An 8-bit
// BGR picture `width` pixels wide on a dark ground.
cv::Mat DrawLegend(int width);

// How the cut ended, in words: "cut at row 300", "two stripes at row 210
// (peaks in columns 250 and 330)", "too few points: 12 (50 needed)", "no cut
// line (...)" or "cut line at row 300 refused: num2 ... G ...".
std::string DescribeCut(const kivplugcali::StripeCut& cut);

}  // namespace stripeinspect

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_OVERLAY_H_
