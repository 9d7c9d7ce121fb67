// The four calculation nodes of liblasercalc.so (docs/calibration.md).
//
// PlaneNode takes plane calibration requests ("LASER_CALIBR_REQ") and fits
// each laser's plane to its stripe pictures; its answer ("LASER_CALIBR_REQRES")
// carries the nine plane values. CheckNode takes check requests
// ("CAMERACALICHECK") and measures its pictures against the planes a plane
// node last sent with success; DistanceNode takes distance check requests
// ("DISTANCESTARTCACULATE") and measures the wall in its two pictures with
// those planes (or, until some are sent, with the configured fallback
// planes). Both learn the planes from the plane node's answers on
// "LASER_CALIBR_REQRES", wherever that node runs. CameraParamNode takes
// camera parameter requests ("CAMERACALI_IEPARAM"), each with one chessboard
// view: it keeps every view that shows the whole board (a copy of the
// picture and its corners), and once it was asked about the configured
// number of views it calibrates the camera from those it kept
// (camera_calibration.h), writes the camera model file and starts a new set.
//
// Each answers as a CalcNode (calc_node.h) and fills only the fields its
// answer record's contract names; the rest stay zero.
#ifndef LASERCALI_TOOLS_CALC_CALC_NODES_H_
#define LASERCALI_TOOLS_CALC_CALC_NODES_H_

#include <rapidjson/document.h>

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "msgs/calimsgs.h"
#include "tools/calc/calc_node.h"
#include "tools/calc/chessboard.h"
#include "tools/calc/laser_calibration.h"

namespace calc {

// The status of a camera parameter answer (ieparam3) when the view was kept
// and the set needs more views; the camera's calibration answers kSuccess or
// a failure code (chessboard.h).
inline constexpr uint16_t kViewKept = 0;

// The stripe pictures of `paths` by laser (0 left, 1 right), each with the
// target its name gives: the wall at its distance, `wall_height` high.
void PicturesBySide(const std::vector<std::string>& paths, const std::vector<cv::Mat>& pictures,
                    double wall_height, std::vector<StripePicture> sides[2]);

class PlaneNode : public CalcNode {
 public:
  explicit PlaneNode(const rapidjson::Value& config);

 private:
  Outcome Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) override;
  void Refuse(int64_t code) override;
  void Send() override { answers_.publishWithLine(&answer_, NodeName()); }

  kiv::Publisher<LaserClibrMsg> answers_;
  LaserClibrMsg answer_;
};

class CheckNode : public CalcNode {
 public:
  explicit CheckNode(const rapidjson::Value& config);

 private:
  Outcome Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) override;
  void Refuse(int64_t code) override;
  void Send() override { answers_.publishWithLine(&answer_, NodeName()); }

  kiv::Publisher<kiv_camera_calires_msg> answers_;
  kiv_camera_calires_msg answer_;
  SentPlanes sent_;
};

class DistanceNode : public CalcNode {
 public:
  explicit DistanceNode(const rapidjson::Value& config);

 private:
  Outcome Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) override;
  void Refuse(int64_t code) override;
  void Send() override { answers_.publishWithLine(&answer_, NodeName()); }

  kiv::Publisher<kiv_camera_distance_msg> answers_;
  kiv_camera_distance_msg answer_;
  SentPlanes sent_;
};

class CameraParamNode : public CalcNode {
 public:
  explicit CameraParamNode(const rapidjson::Value& config);

 private:
  Outcome Compute(const std::vector<cv::Mat>& pictures, rapidjson::Document& report) override;
  void Refuse(int64_t code) override;
  void Send() override { answers_.publishWithLine(&answer_, NodeName()); }

  struct KeptView {
    std::string name;  // "view 03"
    cv::Mat picture;   // a copy: the next request overwrites the file
    std::vector<Pixel> corners;
    BoardPlacement placement;  // when the fixture said
  };

  kiv::Publisher<CameraClibrIEParamMsg> answers_;
  CameraClibrIEParamMsg answer_;
  int asked_ = 0;  // views asked about in this set
  std::vector<KeptView> kept_;
};

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_CALC_NODES_H_
