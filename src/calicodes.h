// Codes the calibration node shares with the other nodes of the robot.
//
// Result kinds name what a result record (kind field) or a state text (its
// first number) carries. Request codes are the first field of every request
// to a calculation node and the mode of the check request: plain or
// reset-then-run, for the factory tool or the app. The check values below
// stand in a kind-4 result when no check could be made.
#ifndef LASERCALI_SRC_CALICODES_H_
#define LASERCALI_SRC_CALICODES_H_

#include <cstdint>

namespace kivplugcali {

// Result kinds.
inline constexpr uint8_t kKindCameraState = 1;
inline constexpr uint8_t kKindDistance = 2;
inline constexpr uint8_t kKindIEparam = 3;
inline constexpr uint8_t kKindPlaneCheck = 4;
inline constexpr uint8_t kKindLaserPowerCheck = 5;   // result record: the laser power check request
inline constexpr uint8_t kKindDistanceResponse = 5;  // state text: the distance check's answer
inline constexpr uint8_t kKindLaserPower = 6;

// Request codes (and check modes).
inline constexpr uint8_t kCodeFactory = 1;
inline constexpr uint8_t kCodeFactoryAfterReset = 3;
inline constexpr uint8_t kCodeApp = 4;
inline constexpr uint8_t kCodeAppAfterReset = 5;

// Check values of a kind-4 result whose plane calibration failed or never started.
inline constexpr uint16_t kNoCheckData[4] = {6000, 600, 6000, 600};

}  // namespace kivplugcali

#endif  // LASERCALI_SRC_CALICODES_H_
