// The camera parameter node: the chessboard in its picture.
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "msgs/topics.h"
#include "tools/calc/calc_nodes.h"

namespace calc {

CameraParamNode::CameraParamNode(const rapidjson::Value& config)
    : CalcNode(config, NodeKind::kCameraParam),
      answers_(Advertise<CameraClibrIEParamMsg>(calitopics::kCameraCaliIEParamRes)) {
  TakeRequests<CameraClibrIEParamMsg>(calitopics::kCameraCaliIEParam);
}

void CameraParamNode::Refuse(int64_t code) {
  answer_ = CameraClibrIEParamMsg{};
  answer_.ieparam3 = static_cast<uint16_t>(code);
}

Outcome CameraParamNode::Compute(const std::vector<cv::Mat>& pictures,
                                 rapidjson::Document& report) {
  auto& a = report.GetAllocator();
  const BoardSize& board = config().board;
  answer_ = CameraClibrIEParamMsg{};

  // The board's inner corners, to a tenth of a pixel and better.
  std::vector<cv::Point2f> corners;
  const cv::Size size(board.columns, board.rows);
  const bool found = cv::findChessboardCorners(
      pictures[0], size, corners, cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE);
  Outcome outcome;
  rapidjson::Value seen(rapidjson::kObjectType);
  seen.AddMember("columns", board.columns, a);
  seen.AddMember("rows", board.rows, a);
  seen.AddMember("found", found, a);
  if (found) {
    cv::cornerSubPix(pictures[0], corners, cv::Size(5, 5), cv::Size(-1, -1),
                     cv::TermCriteria(cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 30, 0.01));
    rapidjson::Value points(rapidjson::kArrayType);
    for (const cv::Point2f& c : corners) {
      rapidjson::Value point(rapidjson::kArrayType);
      point.PushBack(static_cast<double>(c.x), a).PushBack(static_cast<double>(c.y), a);
      points.PushBack(point, a);
    }
    seen.AddMember("corners", points, a);
    answer_.ieparam1 = static_cast<uint8_t>(board.columns);
    answer_.ieparam2 = static_cast<uint8_t>(board.rows);
    answer_.ieparam3 = kSuccess;
  } else {
    outcome.Fail(kNoBoard, config().pictures[0] + ": no chessboard of " +
                               std::to_string(board.columns) + " x " + std::to_string(board.rows) +
                               " inner corners");
    answer_.ieparam3 = kNoBoard;
  }
  report.AddMember("board", seen, a);
  return outcome;
}

}  // namespace calc
