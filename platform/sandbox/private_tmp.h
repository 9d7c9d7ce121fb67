// A /tmp of the process's own, for running the node without touching the
// machine's pictures.
//
// Enter() moves the calling process into a new mount namespace (inside a new
// user namespace that maps the caller's own user and group, when it is not
// root), makes every mount in it private, so nothing propagates back, and
// mounts an empty tmpfs on /tmp. The node's /tmp/left, /tmp/right, /tmp/pic
// and /tmp/LL.bmp, /tmp/RR.bmp then live in that tmpfs and vanish with the
// process; the machine's /tmp is untouched. Child processes inherit it.
//
// Call Enter() before the process starts any thread: the kernel refuses a new
// user namespace to a process with several threads. When the namespace cannot
// be had (no privilege, user namespaces switched off), Enter() returns false,
// says why, and has changed nothing.
//
// A program that lives under the machine's /tmp (a checkout in /tmp, an
// unpacked package) keeps seeing itself: the folders of the machine's /tmp
// that hold the program's own file, the working folder and the folders of
// LD_LIBRARY_PATH (and those of the paths given to Keep) are bound into the
// new /tmp under their names. Their
// contents stay the machine's; the node's picture places never are (a
// program inside /tmp/left, /tmp/right or /tmp/pic cannot have a private
// /tmp). Any other path named before Enter() that lies under the machine's
// /tmp stays reachable through Outer(), which goes through a descriptor of
// the old /tmp kept open.
#ifndef LASERCALI_PLATFORM_SANDBOX_PRIVATE_TMP_H_
#define LASERCALI_PLATFORM_SANDBOX_PRIVATE_TMP_H_

#include <set>
#include <string>
#include <vector>

namespace sandbox {

class PrivateTmp {
 public:
  PrivateTmp() = default;
  ~PrivateTmp();
  PrivateTmp(const PrivateTmp&) = delete;
  PrivateTmp& operator=(const PrivateTmp&) = delete;

  // Keeps `path` (absolute) reachable as it is after Enter(): when it lies
  // under the machine's /tmp, its folder directly in /tmp is bound into the
  // new /tmp like the program's own folders. Call before Enter().
  void Keep(const std::string& path) { extra_.push_back(path); }

  // Enters the private /tmp; false (with *reason) when it cannot be had.
  bool Enter(std::string* reason);
  bool entered() const { return entered_; }

  // `path` as the process can reach it now: an absolute path under the
  // machine's /tmp goes through the kept descriptor (/proc/self/fd/N/...),
  // unless it lies in a folder bound into the new /tmp, where it is the same
  // file under its own name; any other path, and every path before Enter(),
  // is returned as it is. Relative paths need nothing: the working folder
  // is kept.
  std::string Outer(const std::string& path) const;

  // Copies every regular file under the private /tmp (not the folders kept
  // from the machine's) to `dir` (taken as Outer(dir)), with the same
  // relative paths, making folders as needed.
  // False (with *reason naming the file) when a file cannot be written;
  // *copied counts the files copied.
  bool CopyFilesTo(const std::string& dir, int* copied, std::string* reason) const;

  // Removes everything in the private /tmp but the folders kept from the
  // machine's, whose contents are the machine's and stay as they are. False
  // (with *reason naming what stayed) when something cannot be removed, or
  // when called before Enter(), which would empty the machine's /tmp.
  bool Empty(std::string* reason) const;

 private:
  bool entered_ = false;
  std::vector<std::string> extra_;  // more paths to keep reachable (Keep)
  std::set<std::string> kept_;      // folders of the machine's /tmp bound into the new one
  int outer_tmp_ = -1;              // the machine's /tmp, opened before the switch
};

}  // namespace sandbox

#endif  // LASERCALI_PLATFORM_SANDBOX_PRIVATE_TMP_H_
