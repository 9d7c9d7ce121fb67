// libFuzzer target: a picture file, read the ways the tools read pictures.
//
// Input: the bytes of a picture file (a damaged BMP or PNG, or anything at
// all). It is read
//   - as the camera simulator's image file for left frames
//     (sim::UseImageFile), which either takes it, and then shows it as the
//     left frames' luminance, or refuses it with a std::invalid_argument
//     that names the file;
//   - as a simulated calculation node checks the pictures it needs
//     (calc::PictureProblem): "" or a short reason;
//   - as stripe-inspect reads a picture (stripetool::ReadPicture), then cuts
//     the stripe of a picture it takes and draws the cut over it; a refusal
//     is a std::runtime_error with the message stripe-inspect prints, which
//     names the file.
// Nothing else may happen: no other exception, no crash, no sanitizer
// report, no decoding of a picture larger than the tools take.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "src/stripecut.h"
#include "tests/fuzz/fuzz_support.h"
#include "tools/calc/picture_files.h"
#include "tools/stripe_tool/overlay.h"
#include "tools/stripe_tool/picture_input.h"

namespace sim = sunxi_cam::sim;

namespace {

constexpr char kPath[] = "/tmp/picture";

void AsCameraImage() {
  try {
    sim::UseImageFile(sim::ImageSlot::kLeft, kPath);
  } catch (const std::invalid_argument& refused) {
    if (std::strstr(refused.what(), kPath) == nullptr) {
      fuzzsupport::Fail(std::string("a camera refusal that does not name the file: ") +
                        refused.what());
    }
    return;
  }
  const uint8_t* shown = sim::Luminance(1);
  if (shown == nullptr) fuzzsupport::Fail("a taken picture that is not shown");
  sim::UseImageFile(sim::ImageSlot::kLeft, "");
}

void AsNeededPicture() {
  const std::string problem = calc::PictureProblem(kPath);
  if (problem == "missing") fuzzsupport::Fail("the picture is there, yet reported missing");
}

void AsStripeInspectPicture(bool gray) {
  cv::Mat picture;
  try {
    picture = stripetool::ReadPicture(kPath, gray);
  } catch (const std::runtime_error& refused) {
    if (std::strstr(refused.what(), kPath) == nullptr) {
      fuzzsupport::Fail(std::string("a stripe-inspect refusal that does not name the file: ") +
                        refused.what());
    }
    return;
  }
  if (picture.cols != kivplugcali::kStripeCols || picture.rows != kivplugcali::kStripeRows ||
      picture.type() != CV_8UC1) {
    fuzzsupport::Fail("stripe-inspect took a picture the stripe cut cannot take");
  }
  kivplugcali::StripeCut cut;
  kivplugcali::CutStripe(picture, kivplugcali::kStripeWalkLeft, &cut);
  const cv::Mat overlay = stripeinspect::DrawOverlay(picture, cut, "fuzz");
  if (overlay.empty()) fuzzsupport::Fail("no overlay drawn");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::EnterPrivateTmp();
  sim::Reset();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzzsupport::WriteFile(kPath, data, size);
  AsCameraImage();
  AsNeededPicture();
  AsStripeInspectPicture(false);
  AsStripeInspectPicture(true);
  return 0;
}
