// Camera model files: what is written reads back bit for bit, a ROS
// camera_info file reads, and every broken file is refused with the file
// and the fault named, leaving the model as it was.
#include "tools/calc/camera_model_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

using calc::CameraModel;

CameraModel FullModel() {
  CameraModel model;
  model.image_width = 640;
  model.image_height = 480;
  model.intrinsics = {452.123456789, 449.987654321, 321.5, 238.25};
  model.distortion = {-0.2987654321, 0.1123, 0.00123, -0.000456, -0.0312};
  model.pose = {0.125, -0.5, 5.0625, 0.3, 10.25, -0.1};
  model.lens_sigma_known = true;
  model.intrinsics_sigma = {0.41, 0.39, 0.27, 0.22};
  model.distortion_sigma = {0.0021, 0.011, 0.00011, 0.00012, 0.019};
  model.pose_sigma_known = true;
  model.pose_sigma = {0.02, 0.021, 0.015, 0.03, 0.025, 0.02};
  return model;
}

// Every value's bits.
void ExpectSame(const CameraModel& a, const CameraModel& b) {
  EXPECT_EQ(a.image_width, b.image_width);
  EXPECT_EQ(a.image_height, b.image_height);
  EXPECT_EQ(std::memcmp(&a.intrinsics, &b.intrinsics, sizeof a.intrinsics), 0);
  EXPECT_EQ(std::memcmp(&a.distortion, &b.distortion, sizeof a.distortion), 0);
  EXPECT_EQ(a.pose_known, b.pose_known);
  EXPECT_EQ(std::memcmp(&a.pose, &b.pose, sizeof a.pose), 0);
  EXPECT_EQ(a.lens_sigma_known, b.lens_sigma_known);
  EXPECT_EQ(std::memcmp(&a.intrinsics_sigma, &b.intrinsics_sigma, sizeof a.intrinsics_sigma), 0);
  EXPECT_EQ(std::memcmp(&a.distortion_sigma, &b.distortion_sigma, sizeof a.distortion_sigma), 0);
  EXPECT_EQ(a.pose_sigma_known, b.pose_sigma_known);
  EXPECT_EQ(std::memcmp(&a.pose_sigma, &b.pose_sigma, sizeof a.pose_sigma), 0);
}

const char kCameraInfo[] = R"(# written by a ROS camera calibration
image_width: 640
image_height: 480
camera_name: narrow_stereo
camera_matrix:
  rows: 3
  cols: 3
  data: [451.25, 0, 318.5, 0, 449.75, 242.125, 0, 0, 1]
distortion_model: plumb_bob
distortion_coefficients:
  rows: 1
  cols: 5
  data: [-0.301, 0.0975, 0.0011, -0.0007, -0.021]
rectification_matrix:
  rows: 3
  cols: 3
  data: [1, 0, 0, 0, 1, 0, 0, 0, 1]
projection_matrix:
  rows: 3
  cols: 4
  data: [430.1, 0, 317.2, 0, 0, 441.3, 243.0, 0, 0, 0, 1, 0]
)";

// The camera_info text with `from` replaced by `to` (which must be there).
std::string CameraInfoWith(const std::string& from, const std::string& to) {
  std::string text = kCameraInfo;
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// Parses `text` named "cam.yaml" into a model filled with FullModel(): it
// must be refused with `what` in the message, and the model stay as it was.
void ExpectRefused(const std::string& text, const std::string& what,
                   const calc::CameraFileOptions& options = {}) {
  CameraModel model = FullModel();
  std::string error;
  EXPECT_FALSE(calc::ParseCameraModel(text, "cam.yaml", &model, &error, options)) << what;
  EXPECT_EQ(error.rfind("camera model cam.yaml: ", 0), 0u) << error;
  EXPECT_NE(error.find(what), std::string::npos) << "expected '" << what << "' in: " << error;
  ExpectSame(model, FullModel());
}

TEST(CameraModelFileTest, WhatIsWrittenReadsBackBitForBit) {
  const CameraModel written = FullModel();
  const std::string text = calc::FormatCameraModel(written);
  EXPECT_EQ(text.rfind("%YAML:1.0", 0), 0u);
  EXPECT_NE(text.find("camera_matrix: !!opencv-matrix"), std::string::npos);
  CameraModel read;
  std::string error;
  ASSERT_TRUE(calc::ParseCameraModel(text, "cam.yaml", &read, &error)) << error;
  ExpectSame(read, written);

  CameraModel bare = calc::ModelOf(calc::Camera{});
  bare.pose_known = false;
  ASSERT_TRUE(calc::ParseCameraModel(calc::FormatCameraModel(bare), "bare", &read, &error));
  ExpectSame(read, bare);
}

TEST(CameraModelFileTest, ARosCameraInfoFileReads) {
  CameraModel model;
  std::string error;
  ASSERT_TRUE(calc::ParseCameraModel(kCameraInfo, "info.yaml", &model, &error, {640, 480}))
      << error;
  EXPECT_EQ(model.intrinsics.fx, 451.25);
  EXPECT_EQ(model.intrinsics.fy, 449.75);
  EXPECT_EQ(model.intrinsics.cx, 318.5);
  EXPECT_EQ(model.intrinsics.cy, 242.125);
  EXPECT_EQ(model.distortion.k1, -0.301);
  EXPECT_EQ(model.distortion.k3, -0.021);
  EXPECT_FALSE(model.pose_known);
  EXPECT_FALSE(model.lens_sigma_known);
  // Four coefficients, no optional matrices, a document start.
  std::string four = CameraInfoWith("cols: 5\n  data: [-0.301, 0.0975, 0.0011, -0.0007, -0.021]",
                                    "cols: 4\n  data: [-0.301, 0.0975, 0.0011, -0.0007]");
  four = "---\n" + four.substr(0, four.find("rectification_matrix"));
  ASSERT_TRUE(calc::ParseCameraModel(four, "four.yaml", &model, &error)) << error;
  EXPECT_EQ(model.distortion.p2, -0.0007);
  EXPECT_EQ(model.distortion.k3, 0.0);
  // Written on a machine whose lines end in "\r\n".
  std::string crlf;
  for (char c : std::string(kCameraInfo))
    crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  ASSERT_TRUE(calc::ParseCameraModel(crlf, "crlf.yaml", &model, &error)) << error;
  EXPECT_EQ(model.intrinsics.cy, 242.125);
  EXPECT_EQ(model.distortion.k3, -0.021);
}

// A file may write a zero coefficient as "-0.000": the model holds plain
// zero, and so reads the same once written again.
TEST(CameraModelFileTest, MinusZeroReadsAsZeroAndSurvivesAWrite) {
  const std::string text =
      CameraInfoWith("data: [-0.301, 0.0975, 0.0011, -0.0007, -0.021]",
                     "data: [-0.301, 0.0975, 0.0011, -0.000, 0]");
  CameraModel model;
  std::string error;
  ASSERT_TRUE(calc::ParseCameraModel(text, "zero.yaml", &model, &error)) << error;
  EXPECT_EQ(model.distortion.p2, 0.0);
  EXPECT_FALSE(std::signbit(model.distortion.p2));
  CameraModel again;
  ASSERT_TRUE(calc::ParseCameraModel(calc::FormatCameraModel(model), "again", &again, &error))
      << error;
  ExpectSame(again, model);
  EXPECT_FALSE(std::signbit(again.distortion.p2));
}

TEST(CameraModelFileTest, AFileIsWrittenAndReadThroughTheFileSystem) {
  std::string error;
  ASSERT_TRUE(calc::WriteCameraModelFile("/tmp/camera.yaml", FullModel(), &error)) << error;
  CameraModel model;
  ASSERT_TRUE(calc::ReadCameraModelFile("/tmp/camera.yaml", &model, &error)) << error;
  ExpectSame(model, FullModel());
  struct stat st;
  EXPECT_NE(stat("/tmp/camera.yaml.part", &st), 0);
}

TEST(CameraModelFileTest, AMissingFileIsNamed) {
  CameraModel model = FullModel();
  std::string error;
  EXPECT_FALSE(calc::ReadCameraModelFile("/tmp/no/such/camera.yaml", &model, &error));
  EXPECT_EQ(error, "camera model /tmp/no/such/camera.yaml: cannot be opened (missing?)");
  ExpectSame(model, FullModel());
}

TEST(CameraModelFileTest, AFailedWriteLeavesWhatWasThere) {
  ASSERT_EQ(mkdir("/tmp/taken", 0755), 0);
  std::string error;
  EXPECT_FALSE(calc::WriteCameraModelFile("/tmp/taken", FullModel(), &error));
  EXPECT_EQ(error, "camera model /tmp/taken: cannot be written (rename)");
  struct stat st;
  EXPECT_EQ(stat("/tmp/taken", &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_NE(stat("/tmp/taken.part", &st), 0);
  EXPECT_FALSE(calc::WriteCameraModelFile("/tmp/no/such/camera.yaml", FullModel(), &error));
  EXPECT_EQ(error, "camera model /tmp/no/such/camera.yaml: cannot be written");
}

// Cut anywhere before its end, the file we write is refused: the required
// matrices come last.
TEST(CameraModelFileTest, EveryCutOfAWrittenFileIsRefused) {
  const std::string text = calc::FormatCameraModel(FullModel());
  const std::size_t end = text.find_last_not_of(" \n") + 1;
  for (std::size_t size = 0; size < end; ++size) {
    CameraModel model = FullModel();
    std::string error;
    ASSERT_FALSE(calc::ParseCameraModel(text.substr(0, size), "cam.yaml", &model, &error))
        << "cut at " << size << " of " << text.size() << ":\n"
        << text.substr(0, size);
    ASSERT_EQ(error.rfind("camera model cam.yaml: ", 0), 0u);
    ExpectSame(model, FullModel());
  }
}

TEST(CameraModelFileTest, ATruncatedFileNamesTheLine) {
  const std::string text = kCameraInfo;
  ExpectRefused(text.substr(0, text.find("0, 449.75")),
                "line 8: the list of data is not closed (is the file cut short?)");
  ExpectRefused(text.substr(0, text.find("0, 449.75") + 3),
                "line 8: the list of data is not closed");
  ExpectRefused(text.substr(0, text.find("  rows: 3")), "line 5: camera_matrix has no value");
  ExpectRefused(text.substr(0, text.find("distortion_model")), "has no distortion_coefficients");
}

TEST(CameraModelFileTest, FilesThatAreNoCameraModelAreRefused) {
  ExpectRefused("", "is empty");
  ExpectRefused(std::string(calc::kMaxCameraModelFile + 1, '#'), "is larger than 65536 bytes");
  ExpectRefused(std::string("image_width: 640\0\n", 18), "holds a NUL byte");
  ExpectRefused("- 1\n- 2\n", "(line 1: not a \"key: value\" line)");
  ExpectRefused("just text", "(line 1: not a \"key: value\" line)");
  ExpectRefused("a: [1, 2\n", "(line 1: the list of a is not closed (is the file cut short?))");
  ExpectRefused("# nothing\n", "is not a map of camera values");
  // What OpenCV's parser reads out of bounds for, or never returns from.
  ExpectRefused("a:\n   rows: 1\n   : [ 1, 2 ]\n", "line 3: not a \"key: value\" line");
  ExpectRefused("a: {b: 1, : 2}\n", "line 1: a value with a character this reader does not take");
  ExpectRefused(": 1\n", "line 1: not a \"key: value\" line");
  ExpectRefused("---L:0\nd1 -\n ", "line 1: not a \"key: value\" line");
  ExpectRefused(CameraInfoWith("image_height: 480\n", ""), "has no image_height");
  ExpectRefused(CameraInfoWith("camera_matrix:", "camera_matrixx:"), "has no camera_matrix");
  ExpectRefused(CameraInfoWith("image_width: 640", "image_width: 640\nimage_width: 640"),
                "line 3: image_width is given twice");
}

TEST(CameraModelFileTest, MatricesAndPicturesOfTheWrongSizeAreRefused) {
  ExpectRefused(CameraInfoWith("rows: 3\n  cols: 3\n  data: [451.25",
                               "rows: 3\n  cols: 4\n  data: [0, 451.25"),
                "camera_matrix is 3 x 4, not 3 x 3");
  ExpectRefused(CameraInfoWith(", 0, 0, 1]\ndistortion_model", ", 0, 0]\ndistortion_model"),
                "camera_matrix is 3 x 3 but its data holds 8 values");
  ExpectRefused(CameraInfoWith("cols: 5\n  data: [-0.301", "cols: 8\n  data: [0, 0, 0, -0.301"),
                "distortion_coefficients is 1 x 8, not 5 values");
  ExpectRefused(CameraInfoWith("rows: 3\n  cols: 4", "rows: 4\n  cols: 3"),
                "projection_matrix is 4 x 3, not 3 x 4");
  ExpectRefused(CameraInfoWith("cols: 5\n  data", "cols: 5\n  dt: u\n  data"),
                "distortion_coefficients does not hold real numbers");
  ExpectRefused(CameraInfoWith("camera_matrix:\n  rows: 3", "camera_matrix:\n  rows: three"),
                "camera_matrix is not a matrix");
  ExpectRefused(CameraInfoWith("image_width: 640", "image_width: 0"),
                "image_width 0 is out of range (1 to 32767)");
  ExpectRefused(CameraInfoWith("image_height: 480", "image_height: 480.5"),
                "image_height is not a whole number");
  ExpectRefused(CameraInfoWith("image_width: 640", "image_width: 4294967936"),
                "line 2: the whole number 4294967936 is too large");
  ExpectRefused(kCameraInfo, "is for 640 x 480 pictures, not 1280 x 720", {1280, 720});
}

TEST(CameraModelFileTest, NumbersThatAreNotFiniteAreRefused) {
  ExpectRefused(CameraInfoWith("451.25", ".nan"), "camera_matrix value 1 is not a finite number");
  ExpectRefused(CameraInfoWith("449.75", ".inf"), "camera_matrix value 5 is not a finite number");
  ExpectRefused(CameraInfoWith("-0.021]", "-.inf]"),
                "distortion_coefficients value 5 is not a finite number");
  ExpectRefused(CameraInfoWith("0.0975", "1e999"),
                "distortion_coefficients value 2 is not a finite number");
  ExpectRefused(CameraInfoWith("430.1", ".nan"), "projection_matrix value 1 is not a finite");
  ExpectRefused(CameraInfoWith("0.0011", "x"), "distortion_coefficients value 3 is not a number");
  std::string ours = calc::FormatCameraModel(FullModel());
  ours.replace(ours.find("height_cm: "), 11, "height_cm: .nan #");
  ExpectRefused(ours, "camera_pose height_cm is not a finite number");
}

TEST(CameraModelFileTest, ValuesNoCameraHasAreRefused) {
  ExpectRefused(CameraInfoWith("451.25, 0,", "451.25, 0.5,"), "camera_matrix is not fx 0 cx");
  ExpectRefused(CameraInfoWith("0, 0, 1]\ndistortion_model", "0, 0, 2]\ndistortion_model"),
                "(skew or last row)");
  ExpectRefused(CameraInfoWith("451.25", "-451.25"), "a focal length not above 0");
  ExpectRefused(CameraInfoWith("318.5", "700"), "principal point outside the picture");
  ExpectRefused(CameraInfoWith("plumb_bob", "equidistant"), "distortion_model is not plumb_bob");
  std::string ours = calc::FormatCameraModel(FullModel());
  ours.replace(ours.find("pitch_deg"), 9, "pitch_dog");
  ExpectRefused(ours, "camera_pose has no pitch_deg");
  ours = calc::FormatCameraModel(FullModel());
  const std::size_t sigma = ours.find("x_cm", ours.find("camera_pose_std_dev"));
  ours.replace(ours.find(':', sigma) + 1, 1, " -");
  ExpectRefused(ours, "camera_pose_std_dev x_cm is negative");
}

}  // namespace
