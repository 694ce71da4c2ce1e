#include "tools/cli/command_line.h"

#include <cstdio>

#include "tools/cli/complaint.h"

namespace Veldrift {

std::optional<int> ParseCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::CallForHelp&) {
    std::printf("%s", app.help().c_str());
    return kExitGoodUse;
  } catch (const CLI::ParseError& error) {
    return Complain(app.get_name().c_str(), kExitBadUse,
                    std::string(error.what()) + "; see --help");
  }
}

}  // namespace Veldrift
