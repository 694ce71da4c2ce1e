#include "encoder/hresult_name.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

TEST(HresultName, KnownResultsHaveTheirNames) {
  struct Case {
    uint32_t value;
    const char* text;
  };
  const Case cases[] = {
      {0x00000000, "S_OK (0x00000000)"},
      {0x80004001, "E_NOTIMPL (0x80004001)"},
      {0x80004002, "E_NOINTERFACE (0x80004002)"},
      {0x80004005, "E_FAIL (0x80004005)"},
      {0x80070005, "E_ACCESSDENIED (0x80070005)"},
      {0x8007000E, "E_OUTOFMEMORY (0x8007000e)"},
      {0x80070057, "E_INVALIDARG (0x80070057)"},
      {0xC00D36B4, "MF_E_INVALIDMEDIATYPE (0xc00d36b4)"},
      {0xC00D36B5, "MF_E_INVALIDSTREAMNUMBER (0xc00d36b5)"},
      {0xC00D36B9, "MF_E_NO_MORE_TYPES (0xc00d36b9)"},
      {0xC00D36E6, "MF_E_ATTRIBUTENOTFOUND (0xc00d36e6)"},
      {0xC00D6D60, "MF_E_TRANSFORM_TYPE_NOT_SET (0xc00d6d60)"},
      {0xC00D6D61, "MF_E_TRANSFORM_STREAM_CHANGE (0xc00d6d61)"},
      {0xC00D6D62, "MF_E_TRANSFORM_INPUT_REMAINING (0xc00d6d62)"},
      {0xC00D6D72, "MF_E_TRANSFORM_NEED_MORE_INPUT (0xc00d6d72)"},
      {0xC00D6D76, "MF_E_UNSUPPORTED_D3D_TYPE (0xc00d6d76)"},
      {0xC00D6D77, "MF_E_TRANSFORM_ASYNC_LOCKED (0xc00d6d77)"},
      {0x00000001, "0x00000001"},
      {0x887A0005, "0x887a0005"},
      {0xC00D36B3, "0xc00d36b3"},
  };
  for (const Case& c : cases) EXPECT_EQ(HresultName(c.value), c.text);
}

}  // namespace
}  // namespace Veldrift
