#include "src/caligetpic.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <opencv2/imgcodecs.hpp>
#include <string>

#include "framework/kiv_timer.h"
#include "src/stripecut.h"

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

namespace {

// Name of the frame timer: the trace tag of the place that starts it.
const std::string kFrameTimerName = "src/caligetpic_310";
// Bytes of the luminance plane at the front of every 640 x 480 NV21 frame.
constexpr std::size_t kLumaBytes = 640 * 480;

// Formats a picture path into the global `filename` buffer, cleared first.
__attribute__((format(printf, 1, 2))) void FormatFilename(const char* format, ...) {
  std::memset(filename, 0, sizeof(filename));
  va_list args;
  va_start(args, format);
  std::vsnprintf(filename, sizeof(filename), format, args);
  va_end(args);
}

// What storing a picture means for one laser (1 left, 8 right).
struct LaserSide {
  int bit;                      // bit of save_pic_success
  cv::Mat* distance_copy;       // distance-check copy of the frame
  const char* distance_format;  // distance-check picture, under pic_path
  const char* app_format;       // app picture at distance 20, under pic_path
  const std::string* folder;    // factory pictures
  const char* first_label;      // logged before an ordinary store
  const char* store_label;      // logged after a store
};

const LaserSide* SideOf(int mode) {
  static const LaserSide kLeft{
      1, &pic_left, "%s/dis_left.bmp", "%s/L.bmp", &left_path, "xxx store_l1 ", "xxx store_l ",
  };
  static const LaserSide kRight{
      2, &pic_right, "%s/dis_right.bmp", "%s/R.bmp", &right_path, "xxx store_r1 ", "xxx store_r ",
  };
  if (mode == 1) return &kLeft;
  if (mode == 8) return &kRight;
  return nullptr;
}

}  // namespace

bool KivNode_caligetpic::Camera_Open() {
  if (camera1_open_flag == 1) return true;
  if (!camera_.OpenCamera(1, sunxi_cam::kPixelFormatNV21, REAR_VIDEO_FPS, 640, 480)) {
    std::cout << "xxx open camera fail! " << std::endl;
    return false;
  }
  std::cout << "xxx open camera success! " << std::endl;
  camera1_open_flag = 1;
  set_expgain_flag = 0;
  save_pic_success = 0;
  const int32_t period_us = time_interval * 1000;
  timer_fd = kiv::AddTimerWithName(std::bind(&KivNode_caligetpic::GetImageFrameTimer, this),
                                   period_us, period_us, kFrameTimerName);
  return true;
}

bool KivNode_caligetpic::Camera_Close() {
  if (camera1_open_flag == 0) return true;
  const bool closed = camera_.CloseCamera();
  if (closed) {
    camera1_open_flag = 0;
    std::cout << "xxx close camera success! ";
  } else {
    // The flag stays 1: a later close tries again.
    std::cout << "xxx close camera fail! ";
  }
  std::cout << std::endl;
  kiv::DelTimer(timer_fd);
  return closed;
}

void KivNode_caligetpic::param_choose() {
  const unsigned d = distance_curr;
  auto choose = [](int32_t exposure, int32_t gain) {
    exposure_value = exposure;
    gain_value = gain;
  };
  if (APP_USE == 0) {
    if (d == dis_chessboard) {
      choose(8000, 32);
    } else if (d == dis_DistanceCheck) {
      choose(1200, 4);
    } else if (d <= 9) {
      choose(600, 4);
    } else if (d <= 19) {
      choose(1900, 4);
    } else if (d <= 39) {
      choose(1900, 32);
    } else {
      choose(1900, 48);
    }
  } else {
    if (d == dis_chessboard) {
      choose(8000, 32);
    } else if (d == dis_DistanceCheck) {
      choose(600, 4);
    } else if (d <= 10) {
      choose(600, 4);
    } else if (d <= 20) {
      choose(1900, 4);
    } else {
      choose(1900, 32);
    }
  }
  std::cout << "xxx exposure " << exposure_value << " gain " << gain_value << std::endl;
}

void KivNode_caligetpic::set_curr_dis() {
  distance_curr = 50;
  std::cout << "xxx set distance_curr = 50 " << std::endl;
}

bool KivNode_caligetpic::setparam(unsigned short distance) {
  if (distance != distance_curr) {
    APPcalires_dis = distance;
    cameraIEparamcali_reset_flag = distance == dis_chessboard ? 1 : 0;
    if (distance == 0) {
      save_pic_success = 3;
      distance_curr = 0;
      cameraplanecali_reset_flag = 1;
      DistanceCheck_reset_flag = dis_DistanceCheck == 0 ? 1 : 0;
      cameraplaneCheck_reset_flag = 1;
      cameraplanecali_publish_flag = 1;
      return true;
    }
    cameraplanecali_reset_flag = 0;
    distance_curr = distance;
    cameraplaneCheck_reset_flag = 0;
    DistanceCheck_reset_flag = distance == dis_DistanceCheck ? 1 : 0;
    if (distance == 50) {
      // The idle distance: nothing to take.
      save_pic_success = 3;
      if (dis_chessboard == 50) {
        cameraIEparamcali_publish_flag = 1;
      } else if (dis_DistanceCheck == 50) {
        DistanceCheck_publish_flag = 1;
      }
      return true;
    }
    set_expgain_flag = 0;
    save_pic_success = 0;
    delay_count = 0;
    param_choose();
  }
  if (save_pic_success != 3) return false;
  if (distance_curr == 0) {
    cameraplanecali_publish_flag = 1;
  } else if (distance_curr == dis_chessboard) {
    cameraIEparamcali_publish_flag = 1;
  } else if (distance_curr == dis_DistanceCheck) {
    DistanceCheck_publish_flag = 1;
  }
  return true;
}

bool KivNode_caligetpic::getonepic(unsigned short distance) {
  distance_curr = distance;
  set_expgain_flag = 0;
  save_pic_success = 0;
  delay_count = 0;
  param_choose();
  return true;
}

void KivNode_caligetpic::GetImageFrameTimer() {
  if (camera1_open_flag == 0) return;
  if (!camera_.GetImageFrame(&image_frame)) return;

  // The sensor takes the settings from frame 50 of the session on, until it
  // has accepted them seven times.
  if (set_expgain_flag <= 6 && image_frame.index >= 50) {
    if (camera_.setExposureGain(exposure_value, gain_value)) {
      ++set_expgain_flag;
      std::cout << "xxx setExposureGain success! ";
    } else {
      std::cout << "xxx setExposureGain failed! ";
    }
    std::cout << std::endl;
  }

  LASER_ID = image_frame.laser & 15;

  // Twenty settling frames, then every frame is stored until the set is complete.
  if ((save_pic_success & 3) != 3 && set_expgain_flag > 6) {
    if (delay_count > 19) {
      std::memcpy(pic_save.data, image_frame.data, kLumaBytes);
      save_pic(static_cast<int>(LASER_ID));
    } else {
      ++delay_count;
    }
  }

  if (camera_.ReturnImageFrame(&image_frame)) {
    std::cout << "[STB] return_res success cc";
  } else {
    std::cout << "xxx  return_res fail";
  }
  std::cout << std::endl;
}

void KivNode_caligetpic::save_pic(int mode) {
  const uint16_t d = distance_curr;

  // Chessboard: any frame completes the set.
  if (d == dis_chessboard) {
    FormatFilename("%s/chessboard.bmp", pic_path.c_str());
    cv::imwrite(filename, pic_save);
    std::cout << "xxx store " << d << std::endl;
    save_pic_success = 3;
    return;
  }

  const LaserSide* side = SideOf(mode);
  if (side == nullptr) return;  // neither laser lit: nothing to store

  // Distance check: the picture and a copy of the frame per laser.
  if (d == dis_DistanceCheck) {
    std::memcpy(side->distance_copy->data, image_frame.data, kLumaBytes);
    FormatFilename(side->distance_format, pic_path.c_str());
    cv::imwrite(filename, pic_save);
    save_pic_success |= side->bit;
    std::cout << side->store_label << d << std::endl;
    return;
  }

  // Any other distance: the app cuts the stripe picture, the factory keeps it whole.
  std::cout << side->first_label << d << std::endl;
  if (APP_USE != 0) {
    if (d == 20) {
      FormatFilename(side->app_format, pic_path.c_str());
      cv::imwrite(filename, pic_save);
    }
    const unsigned char cut = pic_carveup(mode);
    if (cut != 0) APPcalires_dis = static_cast<uint16_t>(256 + cut);
  } else {
    FormatFilename("%s/%d.bmp", side->folder->c_str(), d * 100 + distance_delt);
    cv::imwrite(filename, pic_save);
  }
  save_pic_success |= side->bit;
  std::cout << side->store_label << d << std::endl;
}

// Cuts pic_save: stores it as the scan picture, traces the stripe and, when
// the cut succeeds, stores the cut picture for the current distance.
unsigned char KivNode_caligetpic::pic_carveup(int mode) {
  cv::imwrite(StripeScanFile(mode), pic_save);

  StripeCut cut;
  CutStripe(pic_save, mode, &cut);

  if (cut.stop == StripeCutStop::kTwoStripes) {
    std::cout << "xxx peak_num >= 2" << std::endl;
    return 1;
  }
  std::cout << "xxx qualified point num1 : " << cut.points.size() << std::endl;
  if (cut.stop == StripeCutStop::kTooFewPoints) return 2;

  for (const SlopeCheck& check : cut.checks) {
    if (check.cut) std::cout << "xxx cut_line  " << cut.cut_line << std::endl;
    std::cout << "xxx abs(k1)  " << check.k1 << std::endl;
  }
  std::cout << "xxx qualified point num2 : " << cut.num2 << " G " << cut.G << std::endl;
  if (cut.result != 0) return 2;

  FormatStripeCutFile(filename, sizeof(filename), mode == kStripeWalkLeft ? left_path : right_path,
                      distance_curr, distance_delt);
  cv::imwrite(filename, cut.picture);
  return 0;
}

}  // namespace kivplugcali
