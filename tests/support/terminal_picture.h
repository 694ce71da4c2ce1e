// What a terminal shows, as a picture, with colours by number and half blocks: a dark one, or one
// with black letters on white.
#pragma once

#include <string_view>

#include "tests/support/gray_picture.h"

namespace Veldrift {

// Each character is `scale` pixels wide and twice as high. Whatever isn't a blank or a block is
// shown as a blank; an escape sequence other than for black, white and the terminal's own colours
// is a failure of the test.
enum class Screen { Dark, Paper };
GrayPicture ShowOnTerminal(std::string_view text, int scale, Screen screen = Screen::Dark);

}  // namespace Veldrift
