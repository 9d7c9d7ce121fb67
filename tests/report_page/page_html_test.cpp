// The round's page as HTML: what the round says reaches it as text, never as
// markup, and pictures that cannot be read are named with why.
#include "tools/report_page/page_html.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/report_page/round_page.h"

namespace {

namespace fs = std::filesystem;

int Count(const std::string& text, const std::string& part) {
  int n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// The page's data block, parsed.
rapidjson::Document Data(const std::string& html) {
  const std::string open = "<script type=\"application/json\" id=\"round-data\">";
  const std::size_t from = html.find(open) + open.size();
  const std::string json = html.substr(from, html.find("</script>", from) - from);
  rapidjson::Document data;
  data.Parse(json.c_str());
  EXPECT_FALSE(data.HasParseError());
  return data;
}

TEST(HtmlText, EscapesMarkup) {
  EXPECT_EQ(reportpage::HtmlText("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&#39;");
}

TEST(ScriptJson, LeavesNoAngleBracketThatCouldEndTheElement) {
  EXPECT_EQ(reportpage::ScriptJson("{\"a\":\"</script><!--\"}"),
            "{\"a\":\"\\u003c/script>\\u003c!--\"}");
}

TEST(FillTemplate, ReplacesMarkersOfThePageOnly) {
  EXPECT_EQ(reportpage::FillTemplate("<@A@|@B@>", {{"@A@", "@B@"}, {"@B@", "b"}}), "<@B@|b>");
}

TEST(PageHtml, TextFromTheRoundIsShownAsText) {
  reportpage::RoundPage round;
  round.scenario = "scenarios/<b>bold</b>.json";
  round.description = "<script>alert('round')</script> & <img src=x onerror=alert(1)>";
  round.summary = {{"<i>figure</i>", "</script><script>alert(2)</script>"}};
  round.problems = {"<!-- a comment -->"};
  reportpage::PagePicture picture;
  picture.path = "/tmp/left/<script>.bmp";
  picture.label = "</title>";
  round.pictures = {picture};
  const std::string html = reportpage::PageHtml(round);
  EXPECT_EQ(html.find("<script>alert"), std::string::npos);
  EXPECT_EQ(html.find("<img src=x"), std::string::npos);
  EXPECT_EQ(html.find("<b>bold"), std::string::npos);
  EXPECT_EQ(Count(html, "<script"), 3) << "uPlot, the data block and the page's script";
  EXPECT_NE(html.find("<title>Round scenarios/&lt;b&gt;bold&lt;/b&gt;.json</title>"),
            std::string::npos);
  const rapidjson::Document data = Data(html);
  EXPECT_EQ(std::string(data["description"].GetString()), round.description);
  EXPECT_EQ(std::string(data["summary"][0][1].GetString()), round.summary[0].second);
  EXPECT_EQ(std::string(data["pictures"][0]["path"].GetString()), picture.path);
}

TEST(PageHtml, NamesEveryPictureItCannotShowWithWhy) {
  fs::create_directories("/tmp/page_html/left");
  std::ofstream("/tmp/page_html/left/1060.bmp") << "BM damaged";
  reportpage::RoundPage round;
  round.exit_code = 4;
  for (const char* path : {"/tmp/page_html/left/560.bmp", "/tmp/page_html/left/1060.bmp"}) {
    reportpage::PagePicture p;
    p.path = path;
    round.pictures.push_back(p);
  }
  reportpage::WritePage("/tmp/page_html", round);
  std::ifstream in("/tmp/page_html/report.html");
  std::stringstream text;
  text << in.rdbuf();
  const rapidjson::Document data = Data(text.str());
  EXPECT_EQ(data["exit_code"].GetInt(), 4);
  EXPECT_EQ(std::string(data["pictures"][0]["problem"].GetString()), "no such file");
  EXPECT_NE(std::string(data["pictures"][1]["problem"].GetString()), "");
  EXPECT_EQ(std::string(data["log"]["state"].GetString()), "none");
}

TEST(WritePage, SaysWhichFileItCannotWrite) {
  try {
    reportpage::WritePage("/tmp/page_html/no/such/folder", reportpage::RoundPage());
    FAIL() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("/tmp/page_html/no/such/folder/report.html"),
              std::string::npos)
        << e.what();
  }
}

}  // namespace
