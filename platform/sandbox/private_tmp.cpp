#include "platform/sandbox/private_tmp.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

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

}  // namespace

PrivateTmp::~PrivateTmp() {
  if (outer_tmp_ >= 0) close(outer_tmp_);
}

bool PrivateTmp::Enter(std::string* reason) {
  if (entered_) return true;
  const int outer = open("/tmp", O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (outer < 0) {
    *reason = Failed("open /tmp");
    return false;
  }
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  // Without root, a user namespace gives the right to make mounts.
  const int flags = uid == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS;
  if (unshare(flags) != 0) {
    *reason = Failed(uid == 0 ? "unshare(CLONE_NEWNS)" : "unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    close(outer);
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
    close(outer);
    return false;
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    *reason = Failed("making the mounts private");
    close(outer);
    return false;
  }
  if (mount("lasercali-tmp", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    *reason = Failed("mounting a tmpfs on /tmp");
    close(outer);
    return false;
  }
  outer_tmp_ = outer;
  entered_ = true;
  return true;
}

std::string PrivateTmp::Outer(const std::string& path) const {
  if (!entered_ || path.empty() || path[0] != '/') return path;
  const std::filesystem::path normal = std::filesystem::path(path).lexically_normal();
  const std::filesystem::path relative = normal.lexically_relative("/tmp");
  if (relative.empty() || *relative.begin() == "..") return path;
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

}  // namespace sandbox
