// Watches the picture files the node writes.
//
// FileWatch reports every file closed after writing in the watched folders
// (and, for /tmp itself, only the names asked for), with its size and a
// content hash (64-bit FNV-1a, hex). Poll() is cheap when nothing happened;
// kivrun calls it before writing each event, so a picture appears in the log
// before the console line that follows its write.
#ifndef LASERCALI_TOOLS_KIVRUN_FILE_WATCH_H_
#define LASERCALI_TOOLS_KIVRUN_FILE_WATCH_H_

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace kivrun {

struct WrittenFile {
  std::string path;
  int64_t size = 0;
  std::string hash;  // 16 hex digits; empty when the file could not be read
};

class FileWatch {
 public:
  FileWatch();
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // Watches every file of `folder`, or only `names` when given. False when
  // the folder cannot be watched.
  bool Add(const std::string& folder, const std::set<std::string>& names = {});
  // Reports the files written since the last poll, in the order they were closed.
  void Poll(const std::function<void(const WrittenFile&)>& report);

 private:
  struct Watch {
    std::string folder;
    std::set<std::string> names;
  };
  int fd_;
  std::map<int, Watch> watches_;
};

// FNV-1a 64 of a file's bytes, as 16 hex digits; empty if it cannot be read.
std::string HashFile(const std::string& path, int64_t* size);

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_FILE_WATCH_H_
