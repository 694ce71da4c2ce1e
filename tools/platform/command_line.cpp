#include "tools/platform/command_line.h"

namespace Veldrift {

std::string QuotedArgument(std::string_view argument) {
  std::string quoted = "\"";
  size_t backslashes = 0;
  for (const char character : argument) {
    if (character == '"') quoted.append(backslashes + 1, '\\');
    backslashes = character == '\\' ? backslashes + 1 : 0;
    quoted += character;
  }
  quoted.append(backslashes, '\\');
  return quoted + '"';
}

}  // namespace Veldrift
