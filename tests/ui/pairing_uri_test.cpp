#include "ui/pairing_uri.h"

#include <gtest/gtest.h>

#include "tools/receiver/pairing_uri_reader.h"

namespace Veldrift {
namespace {

TEST(PairingUri, OnlyUnreservedBytesStandAsTheyAre) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"Mac & Cheese", "Mac%20%26%20Cheese"},
      {"\u00E9", "%C3%A9"},
      {"\U0001F4F1", "%F0%9F%93%B1"},
      {"~+", "~%2B"},
      {"AZaz09-._~", "AZaz09-._~"},
      {"@[`{/:", "%40%5B%60%7B%2F%3A"},  // the neighbours of letters and digits
      {"%41", "%2541"},
      {std::string("\0\x01\x7F\xFF", 4), "%00%01%7F%FF"},
  };
  for (const auto& [text, encoded] : cases) EXPECT_EQ(PercentEncode(text), encoded);
}

TEST(PairingUri, BothKeysAreAlwaysThere) {
  EXPECT_EQ(BuildPairingUri({"5f3a", "Caf\u00E9 am Eck"}),
            "veldrift://pair?v=3&id=5f3a&name=Caf%C3%A9%20am%20Eck");
  EXPECT_EQ(BuildPairingUri({"5f3a", ""}), "veldrift://pair?v=3&id=5f3a&name=");
  EXPECT_EQ(BuildPairingUri({"", ""}), "veldrift://pair?v=3&id=&name=");
}

TEST(PairingUri, APhoneReadsWhatThePluginWrote) {
  std::string everyByte;
  for (int byte = 0; byte < 256; ++byte) everyByte += char(byte);
  for (const std::string& text : {std::string(), std::string("a&name=b"), everyByte}) {
    const auto read = ParsePairingUri(BuildPairingUri({"id-" + text, text}));
    ASSERT_TRUE(read.has_value()) << text;
    EXPECT_EQ(read->id, "id-" + text);
    EXPECT_EQ(read->name, text);
  }
}

TEST(PairingUri, APhonePassesOverWhatLaterPluginsMaySay) {
  for (const char* further : {"", "&port=1", "&a=&b=%zz&c=d=e", "&Name=x"}) {
    const auto read =
        ParsePairingUri("veldrift://pair?v=3&id=1&name=Desk%2d+" + std::string(further));
    ASSERT_TRUE(read.has_value()) << further;
    EXPECT_EQ(read->id, "1");
    EXPECT_EQ(read->name, "Desk-+");
  }
}

TEST(PairingUri, APhoneTakesNothingElse) {
  for (const char* uri : {"",
                          "veldrift://pair",
                          "veldrift://pair?v=3",
                          "veldrift://pair?v=3&id=1",
                          "veldrift://pair?v=4&id=1&name=a",
                          "veldrift://pair?v=3&name=a&id=1",
                          "Veldrift://pair?v=3&id=1&name=a",
                          " veldrift://pair?v=3&id=1&name=a",
                          "veldrift://pair?id=1&v=3&name=a",
                          "veldrift://pair?v=3&id=1&x=2&name=a",
                          "veldrift://pair?v=3&id=%&name=a",
                          "veldrift://pair?v=3&id=%4&name=a",
                          "veldrift://pair?v=3&id=1&name=%4",
                          "veldrift://pair?v=3&id=1&name=%g0",
                          "veldrift://pair?v=3&id=1&name=%-1",
                          "veldrift://pair?v=3&id=1&name=a b",
                          "veldrift://pair?v=3&id=1&name=\u00E9",
                          "veldrift://pair?v=3&id=1&name=a&",
                          "veldrift://pair?v=3&id=1&name=a&b",
                          "veldrift://pair?v=3&id=1&name=a&=b",
                          "veldrift://pair?v=3&id=1&name=a&id=2",
                          "veldrift://pair?v=3&id=1&name=a\n"}) {
    EXPECT_FALSE(ParsePairingUri(uri).has_value()) << uri;
  }
}

}  // namespace
}  // namespace Veldrift
