#include "src/caligetpic.h"

namespace kivplugcali {

// Made at load in this order, destroyed at unload in reverse.
cv::Mat pic_save = cv::Mat::zeros(480, 640, CV_8UC1);
cv::Mat pic_left = cv::Mat::zeros(480, 640, CV_8UC1);
cv::Mat pic_right = cv::Mat::zeros(480, 640, CV_8UC1);
sunxi_cam::SunxiCam camera_;

uint16_t dis_chessboard = 255;
uint16_t dis_DistanceCheck = 0x3333;
int32_t time_interval = 10;
int32_t REAR_VIDEO_FPS = 100;
uint16_t distance_curr = 60;
int32_t exposure_value = 1900;
int32_t gain_value = 32;

uint16_t distance_factory = 0;
uint16_t distance_app = 0;
uint16_t distance_delt = 0;
uint8_t APP_USE = 0;
uint16_t APPcalires_dis = 0;

int32_t cameraopen_flag = 0;
int32_t camera1_open_flag = 0;
int32_t timer_fd = 0;
int32_t set_expgain_flag = 0;
int32_t delay_count = 0;
int32_t save_pic_success = 0;
uint64_t LASER_ID = 0;

int32_t cameraplanecali_reset_flag = 0;
int32_t cameraplaneCheck_reset_flag = 0;
int32_t DistanceCheck_reset_flag = 0;
int32_t cameraIEparamcali_reset_flag = 0;
int32_t cameraplanecali_publish_flag = 0;
int32_t cameraIEparamcali_publish_flag = 0;
int32_t DistanceCheck_publish_flag = 0;

sunxi_cam::ImageFrame image_frame;
KivNode_caligetpic C_caligetpic;
char filename[128] = {};

int32_t createfile_res = 0;
int32_t camera_fd = 0;

}  // namespace kivplugcali
