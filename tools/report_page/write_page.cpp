#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tools/report_page/round_page.h"

namespace reportpage {

void WritePage(const std::string& dir, const RoundPage& round) {
  const std::string html = PageHtml(round);
  const std::filesystem::path path = std::filesystem::path(dir) / kPageFile;
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (out) out.write(html.data(), static_cast<std::streamsize>(html.size()));
  if (out) out.close();
  if (!out) {
    const int error = errno;
    throw std::runtime_error("cannot write " + path.string() +
                             (error != 0 ? std::string(": ") + std::strerror(error) : ""));
  }
}

}  // namespace reportpage
