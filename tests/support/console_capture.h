// Captures everything written to std::cout and std::cerr while alive.
#ifndef LASERCALI_TESTS_SUPPORT_CONSOLE_CAPTURE_H_
#define LASERCALI_TESTS_SUPPORT_CONSOLE_CAPTURE_H_

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace testsupport {

class ConsoleCapture {
 public:
  ConsoleCapture() : old_out_(std::cout.rdbuf(out_.rdbuf())), old_err_(std::cerr.rdbuf(err_.rdbuf())) {}
  ~ConsoleCapture() {
    std::cout.rdbuf(old_out_);
    std::cerr.rdbuf(old_err_);
  }
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  std::string Out() const { return out_.str(); }
  std::string Err() const { return err_.str(); }
  // Standard output split into lines (without their line ends).
  std::vector<std::string> OutLines() const { return Split(out_.str()); }
  std::vector<std::string> ErrLines() const { return Split(err_.str()); }
  void Clear() {
    out_.str("");
    err_.str("");
  }

 private:
  static std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> lines;
    std::string::size_type start = 0;
    for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
      lines.push_back(text.substr(start, end - start));
      start = end + 1;
    }
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
  }

  std::ostringstream out_;
  std::ostringstream err_;
  std::streambuf* old_out_;
  std::streambuf* old_err_;
};

}  // namespace testsupport

#endif  // LASERCALI_TESTS_SUPPORT_CONSOLE_CAPTURE_H_
