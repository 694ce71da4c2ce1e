#include "tools/cli/command_line.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "tools/cli/complaint.h"

namespace Veldrift {

namespace {

std::string Plain(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", number);
  return text;
}

}  // namespace

std::string OutsideRange(const std::string& text, double lowest, double highest, bool whole) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  const bool good = error == std::errc() && stop == end && value >= lowest && value <= highest &&
                    (!whole || value == std::floor(value));
  if (good) return {};
  return text + " isn't a" + (whole ? " whole" : "") + " number from " + Plain(lowest) + " to " +
         Plain(highest);
}

const char* ToolVersion() { return VD_VERSION; }

std::optional<int> ParseCommandLine(CLI::App& app, int argc, char** argv) {
  app.set_version_flag("--version", app.get_name() + " " + ToolVersion(), "prints the version");
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::CallForHelp&) {
    std::printf("%s", app.help().c_str());
    return kExitGoodUse;
  } catch (const CLI::CallForVersion& version) {
    std::printf("%s\n", version.what());
    return kExitGoodUse;
  } catch (const CLI::ParseError& error) {
    return Complain(app.get_name().c_str(), kExitBadUse,
                    std::string(error.what()) + "; see --help");
  }
}

}  // namespace Veldrift
