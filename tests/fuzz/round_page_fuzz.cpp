// libFuzzer target: the event log beside a round's page.
//
// Input: the bytes of DIR/events.jsonl (any round's log, damaged, cut
// short, or anything at all). The page of a round that wrote two pictures
// (the left one present and a clean stripe picture, the right one missing)
// is made with it: the log is read, the figures and the planes' points are
// taken from it when it is the round's, and the pictures are shown.
// Nothing else may happen: no exception, no crash, no sanitizer report; the
// page has its three scripts and no other, and its data block is JSON.
#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_support.h"
#include "tools/report_page/round_page.h"

namespace {

constexpr char kDir[] = "/tmp/round";

int Count(const std::string& text, const std::string& part) {
  int n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A 640 x 480 8-bit BMP: a dark floor and one bright upright stripe.
std::vector<uint8_t> StripeBmp() {
  const int width = 640, height = 480, palette = 256 * 4, header = 54 + palette;
  std::vector<uint8_t> bmp(header + width * height, 8);
  auto put32 = [&](int at, uint32_t v) {
    for (int i = 0; i < 4; ++i) bmp[at + i] = static_cast<uint8_t>(v >> (8 * i));
  };
  bmp[0] = 'B';
  bmp[1] = 'M';
  put32(2, static_cast<uint32_t>(bmp.size()));
  put32(6, 0);
  put32(10, header);
  put32(14, 40);
  put32(18, width);
  put32(22, height);
  bmp[26] = 1;
  bmp[27] = 0;
  bmp[28] = 8;
  bmp[29] = 0;
  for (int at : {30, 34, 38, 42, 46, 50}) put32(at, 0);
  for (int i = 0; i < 256; ++i) {
    for (int k = 0; k < 3; ++k) bmp[54 + 4 * i + k] = static_cast<uint8_t>(i);
    bmp[54 + 4 * i + 3] = 0;
  }
  for (int row = 0; row < height; ++row) {
    for (int col = 300; col < 304; ++col) bmp[header + row * width + col] = 220;
  }
  return bmp;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzsupport::EnterPrivateTmp();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::filesystem::create_directories(std::string(kDir) + "/left");
  static const std::vector<uint8_t> picture = StripeBmp();
  fuzzsupport::WriteFile(std::string(kDir) + "/left/560.bmp", picture.data(), picture.size());
  fuzzsupport::WriteFile(std::string(kDir) + "/" + reportpage::kEventLogFile, data, size);

  reportpage::RoundPage round;
  round.scenario = "fuzzed.json";
  round.event_log = std::string(kDir) + "/" + reportpage::kEventLogFile;
  for (const char* side : {"left", "right"}) {
    reportpage::PagePicture p;
    p.path = std::string(kDir) + "/" + side + "/560.bmp";
    p.hash = "0000000000000000";
    round.pictures.push_back(p);
  }
  const std::string html = reportpage::PageHtml(round);

  if (Count(html, "<script") != 3) fuzzsupport::Fail("a page with another number of scripts");
  const std::string open = "<script type=\"application/json\" id=\"round-data\">";
  const std::size_t from = html.find(open);
  if (from == std::string::npos) fuzzsupport::Fail("a page without its data block");
  const std::size_t end = html.find("</script>", from);
  rapidjson::Document parsed;
  parsed.Parse(html.data() + from + open.size(), end - from - open.size());
  if (parsed.HasParseError()) fuzzsupport::Fail("a data block that is not JSON");
  return 0;
}
