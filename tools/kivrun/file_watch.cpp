#include "tools/kivrun/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <vector>

namespace kivrun {

std::string HashFile(const std::string& path, int64_t* size) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::string();
  uint64_t hash = 1469598103934665603ull;
  int64_t total = 0;
  char buffer[65536];
  while (in) {
    in.read(buffer, sizeof(buffer));
    const std::streamsize got = in.gcount();
    for (std::streamsize i = 0; i < got; ++i) {
      hash ^= static_cast<unsigned char>(buffer[i]);
      hash *= 1099511628211ull;
    }
    total += got;
  }
  if (size) *size = total;
  char text[17];
  std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

FileWatch::FileWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FileWatch::~FileWatch() {
  if (fd_ >= 0) close(fd_);
}

bool FileWatch::Add(const std::string& folder, const std::set<std::string>& names) {
  if (fd_ < 0) return false;
  const int wd = inotify_add_watch(fd_, folder.c_str(), IN_CLOSE_WRITE);
  if (wd < 0) return false;
  watches_[wd] = Watch{folder, names};
  return true;
}

void FileWatch::Poll(const std::function<void(const WrittenFile&)>& report) {
  if (fd_ < 0) return;
  alignas(inotify_event) char buffer[16384];
  for (;;) {
    const ssize_t got = read(fd_, buffer, sizeof(buffer));
    if (got <= 0) return;
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      auto it = watches_.find(event->wd);
      if (it == watches_.end() || event->len == 0) continue;
      const std::string name = event->name;
      if (!it->second.names.empty() && it->second.names.count(name) == 0) continue;
      WrittenFile file;
      file.path = it->second.folder + "/" + name;
      file.hash = HashFile(file.path, &file.size);
      report(file);
    }
  }
}

}  // namespace kivrun
