// How a program's arguments become the one line of text that some systems hand over.
#pragma once

#include <string>
#include <string_view>

namespace Veldrift {

// The argument in quotation marks, by the runtime libraries' rules of splitting a line, backwards:
// backslashes are plain but in front of a quotation mark, where they count double.
std::string QuotedArgument(std::string_view argument);

}  // namespace Veldrift
