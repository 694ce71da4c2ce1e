// The examples in docs/protocol.md, read out of the page.
#pragma once

#include <string>
#include <vector>

namespace Veldrift {

// A line of a code block: the bytes in front of its bar, and what stands behind it.
struct DocumentLine {
  std::string bytes, text;
};

// The first code block behind the line that begins with `marker`. Throws if there is none, or if a
// line is anything but bytes, a bar and a text.
std::vector<DocumentLine> BlockBehind(const std::string& marker);

// The same with the lines put together to messages: one without a text goes on with the message
// before it.
std::vector<DocumentLine> MessagesBehind(const std::string& marker);

// All its bytes.
std::string BytesBehind(const std::string& marker);

// The page's program.
std::string PythonOfDocument();

}  // namespace Veldrift
