#include "framework/kiv_json.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(KivJsonTest, StartsAsAnEmptyObject) {
  KivJson json;
  EXPECT_TRUE(json.IsObject());
  EXPECT_EQ(json.ToString(), "{}");
}

TEST(KivJsonTest, EmptyKeyAndEmptyValueAreEmptyStrings) {
  KivJson json;
  json.AddString("", "");
  json.AddString("k", "");
  EXPECT_EQ(json.ToString(), R"({"":"","k":""})");
  EXPECT_TRUE(json[""].IsString());
}

TEST(KivJsonTest, AddingAKeyTwiceKeepsBothInOrder) {
  KivJson json;
  json.AddString("distance", "ok");
  json.AddString("distance", "fail");
  EXPECT_EQ(json.MemberCount(), 2u);
  EXPECT_EQ(json.ToString(), R"({"distance":"ok","distance":"fail"})");
}

TEST(KivJsonTest, StringsAreCopiedWhateverTheirLength) {
  KivJson json;
  {
    std::string short_key = "a";
    std::string long_key(300, 'k');
    std::string long_value(1000, 'v');
    long_value[10] = '\0';  // embedded zero bytes are kept
    json.AddString(short_key, "b");
    json.AddString(long_key, long_value);
    short_key.assign("zzz");
    long_value.assign("gone");
  }
  auto it = json.MemberBegin();
  EXPECT_EQ(std::string(it->name.GetString()), "a");
  EXPECT_EQ(std::string(it->value.GetString()), "b");
  ++it;
  EXPECT_EQ(it->name.GetStringLength(), 300u);
  ASSERT_EQ(it->value.GetStringLength(), 1000u);
  EXPECT_EQ(it->value.GetString()[10], '\0');
  EXPECT_EQ(it->value.GetString()[11], 'v');
}

}  // namespace
