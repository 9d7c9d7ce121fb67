// The chessboard target's light. Internal to the simulator.
//
// The board is a plane in the camera's frame (camera_sim.h, Board): white,
// with (cols + 1) x (rows + 1) squares of which the one at the top left and
// every other are black, and a white margin around them. Each pixel looks
// along its ray through the lens at the board and finds the board
// coordinates (X, Y) it sees, and how they change from pixel to pixel. The
// pixel's blur (the defocus of the board at that depth, stripe_light.h,
// and the pixel's own square) is a Gaussian of sigma pixels, so along the
// board's X axis the pixel averages with a Gaussian of sigma |grad X| board
// units (and likewise along Y). The board's pattern is a sum of products of
// a function of X and a function of Y, so the blurred pattern is the same
// sum of products of the blurred one-dimensional functions, each a sum of
// normal integrals at its edges; the corners stay where the projection puts
// them. This is exact where the pixel's blur, seen on the board, lies along
// the board's axes, and a close approximation elsewhere.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_BOARD_LIGHT_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_BOARD_LIGHT_H_

#include <string>

#include "platform/sunxi_cam/camera_sim.h"
#include "platform/sunxi_cam/lens.h"

namespace sunxi_cam::sim {

// The board's pose as a calibration sees it (camera_sim.h, BoardTruth).
CameraPose BoardPose(const Board& board);

// "" when every square of the board is in the picture and the board faces
// the camera; else what is wrong ("in view: ...", for "scene.board must be").
std::string BoardViewProblem(const Scene& scene);

// Adds the board's light (grey levels at the reference exposure and gain,
// before vignetting) to `light` (kWidth x kHeight); `defocus` false leaves
// out the lens's blur (the ideal renderer's pinhole camera). Only the
// pixels in the box around the board's outline are worked out;
// `whole_picture` works out every pixel, the plain way, for the test that
// the box misses no light.
void AddBoardLight(const Scene& scene, const Lens& lens, bool defocus, double* light,
                   bool whole_picture = false);

}  // namespace sunxi_cam::sim

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_BOARD_LIGHT_H_
