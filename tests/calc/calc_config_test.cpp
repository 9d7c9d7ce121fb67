// A calculation node's configuration: every member checked, one by one,
// with a message that names the node and the member.
#include "tools/calc/calc_config.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <fstream>
#include <string>

#include "tests/support/temp_folder.h"
#include "tools/calc/camera_model_file.h"

namespace {

using calc::CalcConfig;
using calc::NodeKind;

class CalcConfigTest : public ::testing::Test {
 protected:
  CalcConfigTest() {
    left_ = folder_.Folder("left");
    right_ = folder_.Folder("right");
    pic_ = folder_.Folder("pic");
  }
  // A configuration: the camera and the wall, and `more` members (JSON
  // text without the braces).
  std::string Json(const std::string& more) const {
    return R"({"camera": {"fx": 450, "fy": 451, "cx": 320, "cy": 240, "height_cm": 5,
               "pitch_deg": 10}, "wall_height_cm": 200)" +
           (more.empty() ? "" : ", " + more) + "}";
  }
  CalcConfig Read(NodeKind kind, const std::string& json) const {
    rapidjson::Document doc;
    doc.Parse(json.c_str());
    EXPECT_FALSE(doc.HasParseError()) << json;
    return calc::ReadCalcConfig(kind, doc);
  }
  // The message a configuration is refused with ("" when it is not).
  std::string Refusal(NodeKind kind, const std::string& json) const {
    try {
      Read(kind, json);
    } catch (const calc::CalcConfigError& e) {
      return e.what();
    }
    return "";
  }
  std::string Folders() const {
    return R"("left_folder": ")" + left_ + R"(", "right_folder": ")" + right_ + R"(", "delt": 60)";
  }

  testsupport::TempFolder folder_;
  std::string left_, right_, pic_;
};

TEST_F(CalcConfigTest, FoldersGiveTheFactoryPicturesOfEveryDistance) {
  const CalcConfig config = Read(NodeKind::kPlane, Json(Folders()));
  ASSERT_EQ(config.pictures.size(), 18u);
  EXPECT_EQ(config.pictures.front(), left_ + "/560.bmp");
  EXPECT_EQ(config.pictures[8], left_ + "/4560.bmp");
  EXPECT_EQ(config.pictures[9], right_ + "/560.bmp");
  EXPECT_TRUE(config.has_camera);
  EXPECT_EQ(config.camera.intrinsics.fy, 451);
  EXPECT_EQ(config.camera.pose.pitch, 10);
  EXPECT_EQ(config.wall_height, 200);
  EXPECT_EQ(config.refuse, 2);
  EXPECT_EQ(config.delay_us, 10000);
}

TEST_F(CalcConfigTest, DistancesAndThresholdsMayBeGiven) {
  const CalcConfig check =
      Read(NodeKind::kCheck,
           Json(Folders() + R"(, "distances": [10, 20], "max_rms_px": 0.3, "max_worst_px": 2)"));
  ASSERT_EQ(check.pictures.size(), 4u);
  EXPECT_EQ(check.pictures[1], left_ + "/2060.bmp");
  EXPECT_EQ(check.max_rms_px, 0.3);
  EXPECT_EQ(check.max_worst_px, 2);
  const CalcConfig plane =
      Read(NodeKind::kPlane, Json(Folders() + R"(, "max_rms_mm": 0.25, "min_points": 50)"));
  EXPECT_EQ(plane.calibration.max_rms, 0.025);
  EXPECT_EQ(plane.calibration.min_points, 50);
}

TEST_F(CalcConfigTest, AConfigurationNamingMissingFoldersIsRefused) {
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(R"("left_folder": "/nowhere/left", "right_folder": ")" +
                                           right_ + R"(", "delt": 60)")),
            "KivNodeLaserCalcPlane: \"left_folder\": /nowhere/left is not a folder");
  // The default folders of the calibration node are not there either.
  EXPECT_EQ(Refusal(NodeKind::kCheck, Json(R"("delt": 20)")),
            "KivNodeLaserCalcCheck: \"left_folder\": /tmp/left is not a folder");
  EXPECT_EQ(Refusal(NodeKind::kDistance, R"({"camera": {"fx": 450, "fy": 450, "cx": 320,
              "cy": 240, "height_cm": 5, "pitch_deg": 10}, "pic_folder": "/nowhere/pic"})"),
            "KivNodeLaserCalcDistance: \"pic_folder\": /nowhere/pic is not a folder");
  EXPECT_EQ(Refusal(NodeKind::kPlane,
                    Json(R"("pictures": [")" + left_ + R"(/560.bmp", "/nowhere/right/560.bmp"])")),
            "KivNodeLaserCalcPlane: \"pictures\"[1]: /nowhere/right is not a folder");
}

TEST_F(CalcConfigTest, PicturesNeedTheirLaserAndDistanceAndBothLasers) {
  EXPECT_EQ(Refusal(NodeKind::kPlane,
                    Json(R"("pictures": [")" + pic_ + R"(/L.bmp", ")" + right_ + R"(/1020.bmp"])")),
            "KivNodeLaserCalcPlane: \"pictures\"[0]: cannot tell the laser and the distance of \"" +
                pic_ +
                "/L.bmp\": the node reads .../left/N.bmp and .../right/N.bmp, N = distance "
                "x 100 + offset");
  EXPECT_EQ(Refusal(NodeKind::kCheck, Json(R"("pictures": [")" + left_ + R"(/1020.bmp"])")),
            "KivNodeLaserCalcCheck: \"pictures\" needs pictures of both lasers (none of the right "
            "laser's)");
  const std::string one = R"({"camera": {"fx": 450, "fy": 450, "cx": 320, "cy": 240,
      "height_cm": 5, "pitch_deg": 10}, "pictures": [")" +
                          pic_ + R"(/dis_left.bmp"]})";
  EXPECT_EQ(Refusal(NodeKind::kDistance, one),
            "KivNodeLaserCalcDistance: \"pictures\" needs two pictures, the left laser's and then "
            "the right laser's (it has 1)");
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(Folders() + R"(, "pictures": [")" + left_ +
                                           R"(/560.bmp", ")" + right_ + R"(/560.bmp"])")),
            "KivNodeLaserCalcPlane: give \"pictures\" or \"delt\", not both");
}

TEST_F(CalcConfigTest, EveryMemberIsCheckedWithAMessageNamingIt) {
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(Folders() + R"(, "delay_ms": 0)")),
            "KivNodeLaserCalcPlane: \"delay_ms\" needs a whole number from 1 to 3600000, not 0");
  EXPECT_EQ(Refusal(NodeKind::kCheck, Json(Folders() + R"(, "refuse": 256)")),
            "KivNodeLaserCalcCheck: \"refuse\" needs a whole number from 0 to 255, not 256");
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(Folders() + R"(, "refuse": 300)")), "");
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(Folders() + R"(, "max_rms_px": 1)")),
            "KivNodeLaserCalcPlane: unknown member \"max_rms_px\" (it takes camera, camera_file, "
            "delay_ms, delt, distances, left_folder, max_rms_mm, min_points, name, pictures, "
            "refuse, right_folder, wall_height_cm)");
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(R"("delt": 100)")),
            "KivNodeLaserCalcPlane: \"delt\" needs a whole number from 0 to 99, not 100");
  // Without a camera the node is built; it refuses every request (kNoCamera).
  EXPECT_FALSE(Read(NodeKind::kPlane, R"({"delt": 60, "wall_height_cm": 200, "left_folder": ")" +
                                          left_ + R"(", "right_folder": ")" + right_ + R"("})")
                   .has_camera);
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(R"("camera_file": "c.yaml")")),
            "KivNodeLaserCalcPlane: give \"camera\" or \"camera_file\", not both");
  EXPECT_EQ(Refusal(NodeKind::kPlane, R"({"camera": {"fx": 450, "fy": 450, "cx": 320, "cy": 240,
              "height_cm": 5, "pitch_deg": 10}, "delt": 60})"),
            "KivNodeLaserCalcPlane: \"wall_height_cm\" is missing: the height of the target's "
            "wall");
  EXPECT_EQ(Refusal(NodeKind::kPlane, R"({"camera": {"fx": 450, "fy": 450, "cx": 320, "cy": 240,
              "height_cm": -5, "pitch_deg": 10}, "delt": 60, "wall_height_cm": 200})"),
            "KivNodeLaserCalcPlane: \"camera.height_cm\" needs a number above 0 up to 1000000, "
            "not -5");
  EXPECT_EQ(Refusal(NodeKind::kPlane, R"({"camera": {"fx": 450, "cx": 320, "cy": 240,
              "height_cm": 5, "pitch_deg": 10}, "delt": 60, "wall_height_cm": 200})"),
            "KivNodeLaserCalcPlane: \"camera\" needs \"fy\"");
  EXPECT_EQ(Refusal(NodeKind::kPlane, Json(Folders() + R"(, "name": 7)")),
            "KivNodeLaserCalcPlane: \"name\" needs a text, not 7");
  EXPECT_EQ(Refusal(NodeKind::kPlane, "[]"),
            "KivNodeLaserCalcPlane: the configuration needs to be an object, not a list");
}

TEST_F(CalcConfigTest, TheCameraModelMayComeFromAFile) {
  const std::string file = folder_.File("camera.json");
  std::ofstream(file) << R"({"fx": 600, "fy": 601, "cx": 330, "cy": 250, "height_cm": 6,
                            "pitch_deg": 12.5})";
  const CalcConfig config = Read(
      NodeKind::kDistance, R"({"camera": ")" + file + R"(", "pic_folder": ")" + pic_ + R"("})");
  EXPECT_EQ(config.camera.intrinsics.fx, 600);
  EXPECT_EQ(config.camera.intrinsics.cy, 250);
  EXPECT_EQ(config.camera.pose.pitch, 12.5);
  EXPECT_EQ(config.pictures[1], pic_ + "/dis_right.bmp");
  EXPECT_EQ(Refusal(NodeKind::kDistance,
                    R"({"camera": "/nowhere.json", "pic_folder": ")" + pic_ + R"("})"),
            "KivNodeLaserCalcDistance: \"camera\": the camera model file '/nowhere.json' is "
            "missing");
  std::ofstream(folder_.File("bad.json")) << "{\"fx\": ";
  EXPECT_EQ(Refusal(NodeKind::kDistance, R"({"camera": ")" + folder_.File("bad.json") +
                                             R"(", "pic_folder": ")" + pic_ + R"("})"),
            "KivNodeLaserCalcDistance: \"camera\": '" + folder_.File("bad.json") +
                "' is not JSON (at byte 7)");
  EXPECT_EQ(
      Refusal(NodeKind::kDistance, R"({"camera": "/dev/zero", "pic_folder": ")" + pic_ + R"("})"),
      "KivNodeLaserCalcDistance: \"camera\": '/dev/zero' is not a camera model file (a "
      "regular file of at most 65536 bytes)");
}

TEST_F(CalcConfigTest, TheCameraModelMayBeAYamlFileOrAFileReadAtEachRequest) {
  calc::CameraModel model;
  model.intrinsics.fx = 520;
  model.distortion.k1 = -0.3;
  model.pose.yaw = 0.5;
  std::string error;
  const std::string yaml = folder_.File("camera.yaml");
  ASSERT_TRUE(calc::WriteCameraModelFile(yaml, model, &error)) << error;
  const CalcConfig config = Read(
      NodeKind::kDistance, R"({"camera": ")" + yaml + R"(", "pic_folder": ")" + pic_ + R"("})");
  EXPECT_EQ(config.camera.intrinsics.fx, 520);
  EXPECT_EQ(config.camera.distortion.k1, -0.3);
  EXPECT_EQ(config.camera.pose.yaw, 0.5);
  // A file cut short is refused, naming it.
  const std::string text = calc::FormatCameraModel(model);
  std::ofstream(folder_.File("cut.yaml")) << text.substr(0, text.size() / 2);
  EXPECT_NE(Refusal(NodeKind::kDistance, R"({"camera": ")" + folder_.File("cut.yaml") +
                                             R"(", "pic_folder": ")" + pic_ + R"("})")
                .find("\"camera\": camera model " + folder_.File("cut.yaml")),
            std::string::npos);
  // A camera_info file has no pose: the node could not place the rays.
  std::ofstream(folder_.File("info.yaml"))
      << "image_width: 640\nimage_height: 480\ncamera_name: c\ncamera_matrix:\n  rows: 3\n"
         "  cols: 3\n  data: [500, 0, 320, 0, 500, 240, 0, 0, 1]\ndistortion_model: plumb_bob\n"
         "distortion_coefficients:\n  rows: 1\n  cols: 5\n  data: [0, 0, 0, 0, 0]\n";
  EXPECT_NE(Refusal(NodeKind::kDistance, R"({"camera": ")" + folder_.File("info.yaml") +
                                             R"(", "pic_folder": ")" + pic_ + R"("})")
                .find("gives no pose on the robot"),
            std::string::npos);
  // "camera_file" is read when the node answers: it need not be there yet.
  const CalcConfig later =
      Read(NodeKind::kDistance, R"({"camera_file": ")" + folder_.File("later.yaml") +
                                    R"(", "pic_folder": ")" + pic_ + R"("})");
  EXPECT_FALSE(later.has_camera);
  EXPECT_EQ(later.camera_file, folder_.File("later.yaml"));
}

TEST_F(CalcConfigTest, TheDistanceNodesFallbackPlanesAreUnitNormalsAndOffsets) {
  const std::string camera = R"("camera": {"fx": 450, "fy": 450, "cx": 320, "cy": 240,
      "height_cm": 5, "pitch_deg": 10}, "pic_folder": ")" +
                             pic_ + "\"";
  const CalcConfig config = Read(NodeKind::kDistance, "{" + camera + R"(, "fallback_planes": {
      "left": {"normal": [0, 1, 0], "offset_cm": 2.2},
      "right": {"normal": [0.6, 0.8, 0], "offset_cm": -2.2}}})");
  ASSERT_TRUE(config.has_fallback);
  EXPECT_EQ(config.fallback[1].normal.x, 0.6);
  EXPECT_EQ(config.fallback[0].offset, 2.2);
  EXPECT_EQ(Refusal(NodeKind::kDistance, "{" + camera + R"(, "fallback_planes": {
      "left": {"normal": [0, 2, 0], "offset_cm": 2.2},
      "right": {"normal": [0, 1, 0], "offset_cm": -2.2}}})"),
            "KivNodeLaserCalcDistance: \"fallback_planes.left.normal\" needs a number from -1 to "
            "1, not 2");
  EXPECT_EQ(Refusal(NodeKind::kDistance, "{" + camera + R"(, "fallback_planes": {"left": 1}})"),
            "KivNodeLaserCalcDistance: \"fallback_planes\" needs an object with \"left\" and "
            "\"right\", not an object");
}

TEST_F(CalcConfigTest, TheCameraParameterNodeReadsTheChessboardOfItsBoardSize) {
  const CalcConfig config =
      Read(NodeKind::kCameraParam,
           R"({"pic_folder": ")" + pic_ + R"(", "board": {"columns": 7, "rows": 5}})");
  ASSERT_EQ(config.pictures.size(), 1u);
  EXPECT_EQ(config.pictures[0], pic_ + "/chessboard.bmp");
  EXPECT_EQ(config.board.columns, 7);
  EXPECT_EQ(Refusal(NodeKind::kCameraParam,
                    R"({"pic_folder": ")" + pic_ + R"(", "board": {"columns": 1, "rows": 5}})"),
            "KivNodeLaserCalcCameraParam: \"board.columns\" needs a whole number from 2 to 100, "
            "not 1");
  // It takes no camera model: it is what it will calibrate.
  EXPECT_NE(Refusal(NodeKind::kCameraParam, Json(R"("pic_folder": ")" + pic_ + "\"")), "");
}

TEST_F(CalcConfigTest, TheCameraParameterNodeReadsItsViewsAndWhereTheModelGoes) {
  const std::string pic = R"({"pic_folder": ")" + pic_ + "\"";
  const CalcConfig defaults = Read(NodeKind::kCameraParam, pic + "}");
  EXPECT_EQ(defaults.views, 16);
  EXPECT_EQ(defaults.board.square, 2.5);
  EXPECT_EQ(defaults.placement_file, "");
  EXPECT_EQ(defaults.camera_out, pic_ + "/camera.yaml");
  const CalcConfig config =
      Read(NodeKind::kCameraParam,
           pic + R"(, "board": {"columns": 9, "rows": 6, "square_cm": 2, "margin_cm": 1},)" +
               R"( "views": 8, "camera_out": ")" + pic_ + R"(/cam.yaml", "placement_file": "p"})");
  EXPECT_EQ(config.views, 8);
  EXPECT_EQ(config.board.square, 2.0);
  EXPECT_EQ(config.board.margin, 1.0);
  EXPECT_EQ(config.camera_out, pic_ + "/cam.yaml");
  EXPECT_EQ(config.placement_file, "p");
  EXPECT_EQ(Refusal(NodeKind::kCameraParam, pic + R"(, "views": 5})"),
            "KivNodeLaserCalcCameraParam: \"views\" needs a whole number from 6 to 100, not 5");
  EXPECT_EQ(Refusal(NodeKind::kCameraParam, pic + R"(, "camera_out": "/no/such/camera.yaml"})"),
            "KivNodeLaserCalcCameraParam: \"camera_out\": the folder of \"/no/such/camera.yaml\" "
            "is not there");
  EXPECT_NE(Refusal(NodeKind::kCameraParam, pic + R"(, "board": {"columns": 6, "rows": 6}})")
                .find("\"board\": "),
            std::string::npos);
  EXPECT_NE(Refusal(NodeKind::kCameraParam,
                    pic + R"(, "board": {"columns": 9, "rows": 6, "squares": 2}})")
                .find("unknown member \"squares\""),
            std::string::npos);
}

}  // namespace
