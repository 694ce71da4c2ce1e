// The small JSON reader and writer of the persistent files. The reader searches; it doesn't parse:
// it knows string values only, and takes the first quoted text that equals the key.
#pragma once

#include <string>
#include <string_view>

namespace Veldrift {

// The value of the first string behind `key`; empty if there is none or if the text ends before the
// value does. `\u` escapes aren't decoded: they lose their backslash.
std::string ExtractJsonString(std::string_view json, std::string_view key);

// `text` with JSON escapes, without the quotation marks around it. Bytes from 0x80 pass unchanged.
std::string EscapeJsonString(std::string_view text);

// `"key":"value"`, with the value escaped.
std::string JsonMember(std::string_view key, std::string_view value);

}  // namespace Veldrift
