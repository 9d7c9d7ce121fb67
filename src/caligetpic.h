// Camera capture of the calibration node, and the plug-in's shared state.
//
// KivNode_caligetpic owns the camera session: it opens and closes the
// camera (starting and stopping the frame timer), chooses exposure and gain
// for the distance of the picture in progress, takes a frame on every timer
// tick, stores calibration pictures as BMP files and cuts app stripe
// pictures at their cut line. Its one instance is C_caligetpic; the request
// handlers call it directly on the node main thread.
//
// All working state of the plug-in lives in the globals below, in namespace
// kivplugcali, from library load to unload. They are shared by the request
// handlers, the result handlers and the capture code without locks: every
// user runs on the node main thread. Construction order at load: pic_save,
// pic_left, pic_right, camera_ (this file's unit), then left_path,
// right_path, pic_path and the two result records (cameralasercali.cpp);
// unload destroys them in reverse.
#ifndef LASERCALI_SRC_CALIGETPIC_H_
#define LASERCALI_SRC_CALIGETPIC_H_

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>

#include "msgs/calimsgs.h"
#include "platform/sunxi_cam/sunxi_cam.h"

namespace kivplugcali {

class KivNode_caligetpic {
 public:
  // Opens the camera and starts the frame timer; true at once if open.
  bool Camera_Open();
  // Closes the camera and stops the frame timer; true at once if closed.
  bool Camera_Close();
  // Sets exposure_value and gain_value for distance_curr and APP_USE.
  void param_choose();
  // Sets distance_curr to the idle value 50.
  void set_curr_dis();
  // Moves to `distance`; true when the picture set there is complete.
  bool setparam(unsigned short distance);
  // Starts a new picture at `distance` unconditionally; always true.
  bool getonepic(unsigned short distance);
  // The frame timer's callback: one frame per tick.
  void GetImageFrameTimer();
  // Stores pic_save for the laser `mode` (1 left, 8 right).
  void save_pic(int mode);
  // Cuts the stripe picture in pic_save: 0 stored, 1 two stripes, 2 refused.
  unsigned char pic_carveup(int mode);
};

// --- Request values and camera settings -------------------------------------
extern uint16_t dis_chessboard;     // 255: request value of the chessboard calibration
extern uint16_t dis_DistanceCheck;  // 0x3333: request value of the distance check
extern int32_t time_interval;       // 10: frame timer period in milliseconds
extern int32_t REAR_VIDEO_FPS;      // 100: frame rate asked of the camera
extern uint16_t distance_curr;      // 60: distance of the picture in progress; 50 is idle
extern int32_t exposure_value;      // 1900: exposure for the distance in progress
extern int32_t gain_value;          // 32: gain for the distance in progress

// --- Configuration and caller mode -------------------------------------------
extern uint16_t distance_factory;  // "delt_factory"
extern uint16_t distance_app;      // "delt_app"
extern uint16_t distance_delt;     // offset added to left/right picture numbers
extern uint8_t APP_USE;            // 0 factory mode, 1 app mode
extern uint16_t APPcalires_dis;    // distance (or capture outcome) reported to the app

// --- Camera session and picture progress -------------------------------------
extern int32_t cameraopen_flag;   // 1 while a request handler holds the camera open
extern int32_t camera1_open_flag;  // camera session open
extern int32_t timer_fd;           // frame timer id
extern int32_t set_expgain_flag;   // successful exposure settings since the last reset
extern int32_t delay_count;        // settling frames counted
extern int32_t save_pic_success;   // bit 0 left stored, bit 1 right stored; 3 complete
extern uint64_t LASER_ID;          // laser identifier of the last frame

// --- Calibration flags --------------------------------------------------------
extern int32_t cameraplanecali_reset_flag;
extern int32_t cameraplaneCheck_reset_flag;
extern int32_t DistanceCheck_reset_flag;
extern int32_t cameraIEparamcali_reset_flag;
extern int32_t cameraplanecali_publish_flag;
extern int32_t cameraIEparamcali_publish_flag;
extern int32_t DistanceCheck_publish_flag;

// --- Pictures and camera objects ----------------------------------------------
extern cv::Mat pic_save;   // 480 x 640 8-bit: the brightness plane of the frame being stored
extern cv::Mat pic_left;   // 480 x 640 8-bit: distance-check copy, left laser
extern cv::Mat pic_right;  // 480 x 640 8-bit: distance-check copy, right laser
extern sunxi_cam::ImageFrame image_frame;
extern sunxi_cam::SunxiCam camera_;
extern KivNode_caligetpic C_caligetpic;
extern char filename[128];  // path buffer for picture writes

// --- Defined with the node (cameralasercali.cpp) --------------------------------
extern std::string left_path;   // "/tmp/left"
extern std::string right_path;  // "/tmp/right"
extern std::string pic_path;    // "/tmp/pic"
extern kiv_camera_calires_msg msg_camera_calires;
extern kiv_camera_APPcalires_msg msg_camera_APPcalires;

// --- Bookkeeping ---------------------------------------------------------------
extern int32_t createfile_res;  // result of the last folder creation
extern int32_t camera_fd;       // camera descriptor; never read or written by the node

}  // namespace kivplugcali

#endif  // LASERCALI_SRC_CALIGETPIC_H_
