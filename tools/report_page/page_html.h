// How the page's parts become one HTML file: the template
// (assets/page.html) with its markers replaced by the style, the scripts,
// uPlot and its licence, and the data block.
//
// Text from the round reaches the HTML in two ways only: the title, escaped
// as HTML text, and the data block, JSON inside a <script
// type="application/json"> element with every "<" written as \u003c, so that
// nothing in it can end the element; the page's script shows its strings as
// text. The embedded scripts and styles are checked not to hold "</script",
// "</style" or "<!--".
#ifndef LASERCALI_TOOLS_REPORT_PAGE_PAGE_HTML_H_
#define LASERCALI_TOOLS_REPORT_PAGE_PAGE_HTML_H_

#include <string>
#include <utility>
#include <vector>

namespace reportpage {

// `text` with & < > " ' escaped, for HTML text and attribute values.
std::string HtmlText(const std::string& text);
// JSON text made safe inside a <script> element.
std::string ScriptJson(const std::string& json);
// `page` with each marker (first of a pair) replaced by its value; markers
// are looked for in `page` only, never in the values put in.
std::string FillTemplate(const std::string& page,
                         const std::vector<std::pair<std::string, std::string>>& values);

}  // namespace reportpage

#endif  // LASERCALI_TOOLS_REPORT_PAGE_PAGE_HTML_H_
