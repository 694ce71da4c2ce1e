#include "identity/json_text.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(EscapeJsonString, EscapesWhatJsonForbidsAndNothingElse) {
  EXPECT_EQ(EscapeJsonString("plain / text"), "plain / text");
  EXPECT_EQ(EscapeJsonString("\" \\ \b \f \n \r \t"), R"(\" \\ \b \f \n \r \t)");
  EXPECT_EQ(EscapeJsonString(std::string("\x01\x1F\0", 3)), "\\u0001\\u001f\\u0000");
  EXPECT_EQ(EscapeJsonString("\x20\x7F\xC3\xA9"), "\x20\x7F\xC3\xA9");
}

TEST(ExtractJsonString, FindsTheFirstStringBehindItsKey) {
  const struct {
    const char* json;
    const char* key;
    const char* value;
  } kCases[] = {
      {R"({"id":"7","name":"n"})", "name", "n"},
      {R"({ "id" : "7" })", "id", "7"},
      {R"({"id":"7"})", "name", ""},
      {R"({"names":"x"})", "name", ""},
      {R"({"a":"name","name":"n"})", "name", "n"},  // the text of a value is taken for the key
      {R"({"a":"name","b":"x"})", "name", "x"},
      {R"({"discoverable":false,"next":"on"})", "discoverable", "next"},  // not a string
      {R"({"id":""})", "id", ""},
      {R"({"id")", "id", ""},
      {R"({"id":)", "id", ""},
      {R"({"id":"cut)", "id", ""},
      {R"({"id":"cut\)", "id", ""},
      {R"({"id":"cut\")", "id", ""},
      {"", "id", ""},
      {R"({"id":"a\"b\\c\/d\b\f\n\r\t"})", "id", "a\"b\\c/d\b\f\n\r\t"},
      {R"({"id":"\u0007\x"})", "id", "u0007x"},
  };
  for (const auto& c : kCases) EXPECT_EQ(ExtractJsonString(c.json, c.key), c.value) << c.json;
}

TEST(JsonText, WhatIsWrittenComesBack) {
  for (const std::string text : {"", "plain", "a \"quoted\" name", "back\\slash", "\\\"",
                                 "line\nfeed\r\t", "J\xC3\xBCrgen", "} , { : ["}) {
    EXPECT_EQ(ExtractJsonString(
                  "{" + JsonMember("other", text) + "," + JsonMember("key", text) + "}", "key"),
              text);
  }
}

TEST(JsonText, AControlCharacterComesBackAsItsCode) {
  EXPECT_EQ(ExtractJsonString(JsonMember("key", "\x01"), "key"), "u0001");
}

}  // namespace
}  // namespace Veldrift
