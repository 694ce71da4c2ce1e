#include "support/text.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(Text, OnlyAsciiCapitalsHaveALowerCase) {
  EXPECT_EQ(LowerCase("AZ az [@` M\xC3\x9CLLER"), "az az [@` m\xC3\x9Cller");
}

TEST(Text, WhatIsNoCharacterIsReplaced) {
  const struct {
    const char* text;
    const char* mended;
  } kCases[] = {
      {"gr\xC3\xBCn \xF0\x9F\x8E\xA5", "gr\xC3\xBCn \xF0\x9F\x8E\xA5"},
      {"cut \xE2\x86", "cut \xEF\xBF\xBD"},
      {"\xFFx\x86", "\xEF\xBF\xBDx\xEF\xBF\xBD"},
      {"\xC0\x8A", "\xEF\xBF\xBD"},
      {"", ""},
  };
  for (const auto& [text, mended] : kCases) EXPECT_EQ(MendUtf8(text), mended);
}

}  // namespace
}  // namespace Veldrift
