#include "tools/report_page/page_html.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "tools/report_page/page_data.h"
#include "tools/report_page/round_page.h"

namespace reportpage {

namespace assets {
extern const unsigned char page_template[], page_style[], page_script[];
extern const unsigned char uplot_script[], uplot_style[], uplot_license[];
extern const std::size_t page_template_size, page_style_size, page_script_size;
extern const std::size_t uplot_script_size, uplot_style_size, uplot_license_size;
}  // namespace assets

namespace {

std::string Asset(const unsigned char* bytes, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(bytes), size);
}

// Text that goes inside a <script> or <style> element as it is: it must not
// end the element early.
std::string Inside(const std::string& text, const char* what) {
  std::string lower(text.size(), ' ');
  std::transform(text.begin(), text.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower.find("</script") != std::string::npos || lower.find("</style") != std::string::npos ||
      lower.find("<!--") != std::string::npos) {
    throw std::logic_error(std::string("the round page's ") + what +
                           " holds text that would end its element");
  }
  return text;
}

}  // namespace

std::string HtmlText(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string ScriptJson(const std::string& json) {
  std::string out;
  out.reserve(json.size());
  for (char c : json) {
    if (c == '<') {
      out += "\\u003c";
    } else {
      out += c;
    }
  }
  return out;
}

std::string FillTemplate(const std::string& page,
                         const std::vector<std::pair<std::string, std::string>>& values) {
  std::string out;
  std::size_t at = 0;
  while (at < page.size()) {
    std::size_t next = std::string::npos;
    const std::pair<std::string, std::string>* value = nullptr;
    for (const auto& v : values) {
      const std::size_t found = page.find(v.first, at);
      if (found < next) {
        next = found;
        value = &v;
      }
    }
    if (value == nullptr) {
      out.append(page, at, std::string::npos);
      break;
    }
    out.append(page, at, next - at);
    out += value->second;
    at = next + value->first.size();
  }
  return out;
}

std::string PageHtml(const RoundPage& round) {
  const std::string title =
      "Round " + (round.scenario.empty() ? std::string("of kivrun") : round.scenario);
  return FillTemplate(
      Asset(assets::page_template, assets::page_template_size),
      {{"@TITLE@", HtmlText(title)},
       {"/*@UPLOT_STYLE@*/", Inside(Asset(assets::uplot_style, assets::uplot_style_size), "style")},
       {"/*@PAGE_STYLE@*/", Inside(Asset(assets::page_style, assets::page_style_size), "style")},
       {"@UPLOT_VERSION@", LASERCALI_UPLOT_VERSION},
       {"@UPLOT_LICENSE@",
        Inside(Asset(assets::uplot_license, assets::uplot_license_size), "licence")},
       {"/*@UPLOT_SCRIPT@*/",
        Inside(Asset(assets::uplot_script, assets::uplot_script_size), "plotting library")},
       {"@DATA@", ScriptJson(PageData(round))},
       {"/*@PAGE_SCRIPT@*/",
        Inside(Asset(assets::page_script, assets::page_script_size), "script")}});
}

}  // namespace reportpage
