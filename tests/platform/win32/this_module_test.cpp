#include "platform/win32/this_module.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

// The headers have a macro of this name.
struct Names {
  static std::string SendMessage() { return __func__; }
};

TEST(ThisModule, InAProgramItIsTheProgram) {
  EXPECT_EQ(ThisModule(), GetModuleHandleW(nullptr));
  EXPECT_EQ(Names::SendMessage(), "SendMessage");
}

}  // namespace
}  // namespace Veldrift
