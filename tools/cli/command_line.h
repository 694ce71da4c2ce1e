// What both stand-ins' command lines share.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Veldrift {

inline constexpr int kExitGoodUse = 0;
inline constexpr int kExitBadUse = 2;

// Of this build.
const char* ToolVersion();

// The exit code to end with, if the program isn't to run: --help, or a mistake, which has been
// answered by then.
std::optional<int> ParseCommandLine(CLI::App& app, int argc, char** argv);

// What is wrong with `text` as a number from `lowest` to `highest`; empty if nothing. CLI11's own
// ranges let "nan" pass, and its unsigned numbers "-1".
std::string OutsideRange(const std::string& text, double lowest, double highest, bool whole);

inline auto NumberFrom(double lowest, double highest) {
  return [=](const std::string& text) { return OutsideRange(text, lowest, highest, false); };
}
inline auto WholeNumberFrom(double lowest, double highest) {
  return [=](const std::string& text) { return OutsideRange(text, lowest, highest, true); };
}

template <typename Value>
std::vector<std::string> NamesOf(const std::map<std::string, Value>& values) {
  std::vector<std::string> names;
  for (const auto& [name, value] : values) names.push_back(name);
  return names;
}

}  // namespace Veldrift
