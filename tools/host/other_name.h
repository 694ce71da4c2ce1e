// The host stand-in under the name of the application that it stands in for: the module tells its
// host by the executable's file name.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "host_options.h"

namespace Veldrift {

// Runs this program again, with the same arguments, under a name by which it is taken for
// `options.host`, and answers that run's exit code; where the system can, it takes the place of
// this one and there is no answer. Nothing: the name is right already, or was not needed.
std::optional<int> RunUnderOtherName(const HostOptions& options, int argc, char** argv);

// Removes what runs under other names have left in `root`, which were killed.
void RemoveAbandonedNames(const std::filesystem::path& root);

// Where the module lies if nobody says it: beside this executable.
std::filesystem::path DefaultModule();

}  // namespace Veldrift
