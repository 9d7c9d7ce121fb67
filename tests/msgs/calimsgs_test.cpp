// Message records start all zero; the topic table is the node's wiring.
#include "msgs/calimsgs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "msgs/topics.h"

namespace {

template <typename T>
bool AllZero() {
  // Fill the storage first so that only the record's own initialisation
  // can make it zero.
  alignas(T) unsigned char storage[sizeof(T)];
  std::memset(storage, 0xAB, sizeof(T));
  T* record = new (storage) T();
  bool zero = true;
  for (std::size_t i = 0; i < sizeof(T); ++i) zero = zero && storage[i] == 0;
  record->~T();
  return zero;
}

TEST(CaliMsgsTest, FreshRecordsAreAllZeroBytes) {
  EXPECT_TRUE(AllZero<kiv_camera_cali_msg>());
  EXPECT_TRUE(AllZero<kiv_msg_laser_calibration>());
  EXPECT_TRUE(AllZero<kiv_camera_calires_msg>());
  EXPECT_TRUE(AllZero<kiv_camera_APPcalires_msg>());
  EXPECT_TRUE(AllZero<LaserClibrMsg>());
  EXPECT_TRUE(AllZero<CameraClibrIEParamMsg>());
  EXPECT_TRUE(AllZero<kiv_camera_distance_msg>());
  EXPECT_TRUE(AllZero<kiv_camera_calicheck_msg>());
  EXPECT_TRUE(AllZero<kiv_laserpower_msg>());
}

TEST(CaliMsgsTest, TheAppRecordIsTheFirst36BytesOfTheResultRecord) {
  kiv_camera_calires_msg full;
  kiv_camera_APPcalires_msg app;
  full.kind = app.kind = 4;
  full.ieparam1 = app.ieparam1 = -3;
  full.ieparam3 = app.ieparam3 = 0x3CFF;
  full.check_data[3] = app.check_data[3] = 600;
  full.plane_data[8] = app.plane_data[8] = 60;
  full.plane_result = app.plane_result = 7;
  full.check_result = app.check_result = 255;
  EXPECT_EQ(std::memcmp(&full, &app, sizeof(app)), 0);
}

TEST(CaliMsgsTest, FieldsLieWhereOtherNodesReadThem) {
  kiv_camera_calires_msg r;
  r.distance = 0x13C;
  r.ieparam3 = 0x3CFF;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&r);
  EXPECT_EQ(bytes[2], 0x3C);  // little-endian
  EXPECT_EQ(bytes[3], 0x01);
  EXPECT_EQ(bytes[6], 255);
  EXPECT_EQ(bytes[7], 60);
}

TEST(CaliMsgsTest, TopicTableHasSixAdvertisementsAndEightSubscriptionsInOrder) {
  int advertised = 0, subscribed = 0, step = 0;
  for (const calitopics::TopicRow& row : calitopics::kTopicTable) {
    EXPECT_EQ(row.step, ++step);
    (row.direction == calitopics::Direction::kAdvertise ? advertised : subscribed) += 1;
  }
  EXPECT_EQ(advertised, 6);
  EXPECT_EQ(subscribed, 8);
  EXPECT_STREQ(calitopics::kTopicTable[3].topic, "DISTANCESTARTCACULATE");
  EXPECT_EQ(calitopics::kTopicTable[2].topic, nullptr);
}

}  // namespace
