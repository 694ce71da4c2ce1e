// What a terminal shows, as a picture: a dark one, with colours by number and half blocks.
#pragma once

#include <string_view>

#include "tests/support/gray_picture.h"

namespace Veldrift {

// Each character is `scale` pixels wide and twice as high. Whatever isn't a blank or a block is
// shown as a blank; an escape sequence other than for black, white and the terminal's own colours
// is a failure of the test.
GrayPicture ShowOnTerminal(std::string_view text, int scale);

}  // namespace Veldrift
