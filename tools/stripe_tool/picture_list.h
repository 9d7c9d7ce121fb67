// The pictures stripe-inspect looks at, from the files and folders named on
// its command line, and the laser each picture's path names.
//
// ListPictures keeps the order of the command line. A file stands for itself,
// whatever its name (ReadPicture decides whether it is a picture). A folder
// stands for every file below it whose name ends in .bmp or .png (in any
// case), in its subfolders too, each folder's names sorted with numbers by
// their value ("500.bmp" before "1000.bmp"), a subfolder's pictures where
// its name sorts. Symbolic links to files are followed; symbolic links to
// folders found inside a folder are not, so a link cannot make a loop. A
// folder that cannot be read, or that holds no picture at all, is an entry
// with a problem, so that nothing named on the command line goes unreported.
// A special file (a pipe, a device) with a picture's name is an entry with a
// problem too, never opened. Other files in folders are passed over and
// counted.
//
// LaserInPath reads the laser from a path: the last of the words "left",
// "right", "LL" and "RR" (in any case) in it, where a word is a run of
// letters and digits; the node names its pictures /tmp/LL.bmp,
// /tmp/RR.bmp, /tmp/left/N.bmp and /tmp/right/N.bmp.
#ifndef LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_LIST_H_
#define LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_LIST_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stripetool {

struct ListEntry {
  std::string path;     // the picture file, or the folder or file with a problem
  std::string problem;  // "" for a picture to read; else the message, naming the path
};

struct PictureList {
  std::vector<ListEntry> entries;
  std::size_t passed_over = 0;  // files in folders not named .bmp or .png
};

// True when `path` is a folder (or a link to one).
bool IsFolder(const std::string& path);

PictureList ListPictures(const std::vector<std::string>& operands);

// True when `a` sorts before `b`: byte by byte, except that runs of digits
// compare by their value ("9" before "10"); names that tie that way ("007"
// and "7") are ordered byte by byte.
bool NameLess(const std::string& a, const std::string& b);

// The walk direction (kivplugcali::kStripeWalkLeft or kStripeWalkRight) of
// the laser `path` names, or nullopt when it names none. The path is taken
// as absolute, so that the folder stripe-inspect runs in counts too.
std::optional<int> LaserInPath(const std::string& path);

}  // namespace stripetool

#endif  // LASERCALI_TOOLS_STRIPE_TOOL_PICTURE_LIST_H_
