#include "ui/pairing_texts.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(PairingTexts, ThePromptNamesThePhone) {
  const std::pair<std::string, std::string> cases[] = {
      {"Anna's iPhone", "Enter this code on Anna's iPhone:"},
      {"", "Enter this code on iPhone:"},
      {"Mac & Cheese", "Enter this code on Mac & Cheese:"},
      {"Jürgens Gerät 📱 電話", "Enter this code on Jürgens Gerät 📱 電話:"},
      {"two\r\nlines\tand a \x7F", "Enter this code on two  lines and a  :"},
      {std::string("cut\0off", 7), "Enter this code on cut off:"},
      {"half a char\xE9\x9B", "Enter this code on half a char\xEF\xBF\xBD:"},
  };
  for (const auto& [name, prompt] : cases) EXPECT_EQ(PairingPrompt(name), prompt);
}

TEST(PairingTexts, BlanksStandBetweenTheCharactersOfTheCodeOnly) {
  const std::pair<std::string, std::string> cases[] = {
      {"123456", "1 2 3 4 5 6"}, {"000007", "0 0 0 0 0 7"},       {"1", "1"}, {"", ""},
      {"1é電📱2", "1 é 電 📱 2"},  {"1\xE9\x9B", "1 \xEF\xBF\xBD"},
  };
  for (const auto& [code, spaced] : cases) EXPECT_EQ(SpacedCode(code), spaced);
}

}  // namespace
}  // namespace Veldrift
