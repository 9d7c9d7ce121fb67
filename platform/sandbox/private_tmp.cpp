#include "platform/sandbox/private_tmp.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace sandbox {

namespace {

std::string Failed(const std::string& what) { return what + ": " + std::strerror(errno); }

// Writes `text` to a /proc file of the process (the user namespace's maps).
bool WriteProcFile(const char* path, const std::string& text, std::string* reason) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    *reason = Failed(std::string("open ") + path);
    return false;
  }
  const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (!ok) *reason = Failed(std::string("write ") + path);
  close(fd);
  return ok;
}

// The folders directly in /tmp that hold what the program needs to go on
// seeing: its own file, the working folder, the LD_LIBRARY_PATH folders,
// and the `extra` paths.
std::set<std::string> FoldersToKeep(const std::vector<std::string>& extra) {
  namespace fs = std::filesystem;
  std::vector<std::string> paths = extra;
  std::error_code error;
  paths.push_back(fs::read_symlink("/proc/self/exe", error).string());
  paths.push_back(fs::current_path(error).string());
  if (const char* libraries = std::getenv("LD_LIBRARY_PATH")) {
    std::istringstream list(libraries);
    for (std::string folder; std::getline(list, folder, ':');) paths.push_back(folder);
  }
  std::set<std::string> tops;
  for (const std::string& path : paths) {
    if (path.empty() || path[0] != '/') continue;
    const fs::path relative = fs::path(path).lexically_normal().lexically_relative("/tmp");
    if (relative.empty() || relative == "." || *relative.begin() == "..") continue;
    tops.insert(relative.begin()->string());
  }
  return tops;
}

}  // namespace

PrivateTmp::~PrivateTmp() {
  if (outer_tmp_ >= 0) close(outer_tmp_);
}

bool PrivateTmp::Enter(std::string* reason) {
  if (entered_) return true;
  const std::set<std::string> keep = FoldersToKeep(extra_);
  for (const char* picture_place : {"left", "right", "pic", "LL.bmp", "RR.bmp"}) {
    if (keep.count(picture_place) != 0) {
      *reason = std::string("the program runs from /tmp/") + picture_place +
                ", where the node writes its pictures";
      return false;
    }
  }
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  // Without root, a user namespace gives the right to make mounts.
  const int flags = uid == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS;
  if (unshare(flags) != 0) {
    *reason = Failed(uid == 0 ? "unshare(CLONE_NEWNS)" : "unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    return false;
  }
  // From here on the process is in its own namespaces: a failure leaves the
  // machine's mounts as they were, but the process should not go on.
  if (uid != 0 &&
      (!WriteProcFile("/proc/self/setgroups", "deny", reason) ||
       !WriteProcFile("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1",
                      reason) ||
       !WriteProcFile("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1",
                      reason))) {
    return false;
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    *reason = Failed("making the mounts private");
    return false;
  }
  // The machine's /tmp as this namespace sees it, before it is covered: the
  // kept folders are bound from it, and Outer() leads through it.
  const int outer = open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (outer < 0) {
    *reason = Failed("open /tmp");
    return false;
  }
  if (mount("lasercali-tmp", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    *reason = Failed("mounting a tmpfs on /tmp");
    close(outer);
    return false;
  }
  const std::string through = "/proc/self/fd/" + std::to_string(outer) + "/";
  for (const std::string& top : keep) {
    struct stat info;
    if (fstatat(outer, top.c_str(), &info, 0) != 0 || !S_ISDIR(info.st_mode)) continue;
    const std::string inside = "/tmp/" + top;
    if (mkdir(inside.c_str(), 0755) != 0 ||
        mount((through + top).c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      *reason = Failed("keeping " + inside + " visible");
      close(outer);
      return false;
    }
  }
  outer_tmp_ = outer;
  kept_ = keep;
  entered_ = true;
  return true;
}

std::string PrivateTmp::Outer(const std::string& path) const {
  if (!entered_ || path.empty() || path[0] != '/') return path;
  const std::filesystem::path normal = std::filesystem::path(path).lexically_normal();
  const std::filesystem::path relative = normal.lexically_relative("/tmp");
  if (relative.empty() || *relative.begin() == "..") return path;
  // A kept folder is bound in: the same files under the same name.
  if (relative != "." && kept_.count(relative.begin()->string()) != 0) return path;
  const std::string through = "/proc/self/fd/" + std::to_string(outer_tmp_);
  return relative == "." ? through : through + "/" + relative.string();
}

bool PrivateTmp::CopyFilesTo(const std::string& dir, int* copied, std::string* reason) const {
  namespace fs = std::filesystem;
  *copied = 0;
  const fs::path to = Outer(dir);
  std::error_code error;
  for (fs::recursive_directory_iterator it("/tmp", error), end; !error && it != end;
       it.increment(error)) {
    if (it.depth() == 0 && kept_.count(it->path().filename().string()) != 0) {
      it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file(error)) continue;
    const fs::path relative = it->path().lexically_relative("/tmp");
    const fs::path target = to / relative;
    fs::create_directories(target.parent_path(), error);
    if (!error) fs::copy_file(it->path(), target, fs::copy_options::overwrite_existing, error);
    if (error) {
      *reason = "cannot copy " + it->path().string() + " to " +
                (fs::path(dir) / relative).string() + ": " + error.message();
      return false;
    }
    ++*copied;
  }
  if (error) {
    *reason = "cannot read the private /tmp: " + error.message();
    return false;
  }
  return true;
}

bool PrivateTmp::Empty(std::string* reason) const {
  namespace fs = std::filesystem;
  if (!entered_) {
    *reason = "not in a private /tmp";
    return false;
  }
  std::error_code error;
  for (fs::directory_iterator it("/tmp", error), end; !error && it != end; it.increment(error)) {
    if (kept_.count(it->path().filename().string()) != 0) continue;
    std::error_code removing;
    fs::remove_all(it->path(), removing);
    if (removing) {
      *reason = "cannot remove " + it->path().string() + ": " + removing.message();
      return false;
    }
  }
  if (error) {
    *reason = "cannot read the private /tmp: " + error.message();
    return false;
  }
  return true;
}

}  // namespace sandbox
