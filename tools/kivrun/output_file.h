// An output that notices when its bytes cannot be written.
//
// OutputFile is a std::streambuf over a file descriptor: a file it creates
// (or truncates), or a descriptor it is given (standard output). Every
// write(2) is checked; the first failure is kept with its errno, and from
// then on the stream is bad. Close() flushes, closes a file it opened and
// says whether every byte went out, with the reason when not ("No space left
// on device"). kivrun's log, its trace and its standard output, and
// stripe-inspect's outputs, all go through it.
#ifndef LASERCALI_TOOLS_KIVRUN_OUTPUT_FILE_H_
#define LASERCALI_TOOLS_KIVRUN_OUTPUT_FILE_H_

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <streambuf>
#include <string>
#include <vector>

namespace kivrun {

class OutputFile : public std::streambuf {
 public:
  // Writes to `fd`, which stays open (standard output).
  explicit OutputFile(int fd) : fd_(fd), owned_(false) { Init(); }
  // Creates or truncates `path`; ok() is false (with the reason) when it cannot.
  explicit OutputFile(const std::string& path)
      : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)), owned_(true) {
    if (fd_ < 0) error_ = errno;
    Init();
  }
  ~OutputFile() override { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool ok() const { return error_ == 0; }
  // Why the output failed ("" while it has not).
  std::string reason() const { return error_ == 0 ? std::string() : std::strerror(error_); }

  // Flushes, closes a file this object opened; true when every byte was written.
  bool Close() {
    if (!closed_) {
      closed_ = true;
      Drain();
      if (owned_ && fd_ >= 0 && close(fd_) != 0 && error_ == 0) error_ = errno;
    }
    return ok();
  }

 protected:
  int_type overflow(int_type c) override {
    if (!Drain()) return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
    }
    return traits_type::not_eof(c);
  }
  int sync() override { return Drain() ? 0 : -1; }

 private:
  void Init() {
    buffer_.resize(64 * 1024);
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }
  // Writes what is buffered; false once anything failed.
  bool Drain() {
    const char* at = pbase();
    const char* end = pptr();
    while (error_ == 0 && at < end) {
      const ssize_t wrote = write(fd_, at, static_cast<std::size_t>(end - at));
      if (wrote < 0 && errno == EINTR) continue;
      if (wrote <= 0) {
        error_ = wrote < 0 ? errno : EIO;
        break;
      }
      at += wrote;
    }
    setp(buffer_.data(), buffer_.data() + buffer_.size());
    return error_ == 0;
  }

  int fd_;
  bool owned_;
  bool closed_ = false;
  int error_ = 0;
  std::vector<char> buffer_;
};

// Writes all of `bytes` to a new (or truncated) file `path`; false with the
// reason when any of it cannot be written or the file cannot be closed.
inline bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t size,
                           std::string* reason) {
  OutputFile file(path);
  if (file.ok()) file.sputn(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  if (file.Close()) return true;
  *reason = file.reason();
  return false;
}

}  // namespace kivrun

#endif  // LASERCALI_TOOLS_KIVRUN_OUTPUT_FILE_H_
