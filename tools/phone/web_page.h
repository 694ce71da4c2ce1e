// The page: all that is served without a key. Made from web_page/ by CMake.
#pragma once

#include <string_view>

namespace Veldrift {

struct WebPage {
  std::string_view path, type, text;
};

// Null if there is none at this path.
const WebPage* FindWebPage(std::string_view path);

}  // namespace Veldrift
