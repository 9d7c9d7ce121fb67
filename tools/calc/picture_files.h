// The picture files of a calibration round, as the calculation nodes read
// them.
//
// The calibration node stores 640 x 480 8-bit BMP pictures: the factory and
// app stripe pictures as <folder>/left/<n>.bmp and <folder>/right/<n>.bmp
// with n = d x 100 + delt (d the wall's distance in whole centimetres, delt
// below 100), the distance check's pic/dis_left.bmp and pic/dis_right.bmp,
// the chessboard's pic/chessboard.bmp. PictureProblem says what is wrong
// with a file before anything decodes it, ReadPicture decodes one,
// StripePictureOf tells the laser and the distance from a stripe picture's
// path, FactoryPictures lists a round's stripe pictures.
#ifndef LASERCALI_TOOLS_CALC_PICTURE_FILES_H_
#define LASERCALI_TOOLS_CALC_PICTURE_FILES_H_

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace calc {

// The size of every picture the node stores.
inline constexpr int kPictureWidth = 640;
inline constexpr int kPictureHeight = 480;

// What is wrong with a picture file for a calculation node: "" when it is a
// 640 x 480 8-bit BMP file, else a short reason ("missing", "not a BMP
// file", "1280 x 480, not 640 x 480", "24-bit, not 8-bit").
std::string PictureProblem(const std::string& path);

// Decodes a picture PictureProblem found nothing wrong with; "" and the
// picture, or why it cannot be used ("cannot be decoded as a 640 x 480
// 8-bit picture").
std::string ReadPicture(const std::string& path, cv::Mat* picture);

// The stripe pictures of the distances `distances` (cm), left laser's
// first: <left>/<d x 100 + delt>.bmp, then <right>/... .
std::vector<std::string> FactoryPictures(const std::string& left, const std::string& right,
                                         int delt, const std::vector<int>& distances);

// The factory round's 18 stripe pictures in /tmp/left and /tmp/right, for
// the distances 5 to 45, numbered with `delt_factory`.
std::vector<std::string> FactoryPlanePictures(int delt_factory);

// What a stripe picture's path says: the laser (its folder is "left" or
// "right") and the wall's distance in cm (its name is a number n, n / 100
// whole centimetres: n = d x 100 + delt with delt below 100). False when the
// path is not of that form.
bool StripePictureOf(const std::string& path, bool* left, int* distance);

}  // namespace calc

#endif  // LASERCALI_TOOLS_CALC_PICTURE_FILES_H_
