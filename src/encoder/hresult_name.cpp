#include "encoder/hresult_name.h"

#include <cinttypes>
#include <cstdio>

namespace Veldrift {
namespace {

struct NamedResult {
  uint32_t value;
  const char* name;
};

constexpr NamedResult kNamedResults[] = {
    {0x00000000, "S_OK"},
    {0x80004001, "E_NOTIMPL"},
    {0x80004002, "E_NOINTERFACE"},
    {0x80004005, "E_FAIL"},
    {0x80070005, "E_ACCESSDENIED"},
    {0x8007000E, "E_OUTOFMEMORY"},
    {0x80070057, "E_INVALIDARG"},
    {0xC00D36B4, "MF_E_INVALIDMEDIATYPE"},
    {0xC00D36B5, "MF_E_INVALIDSTREAMNUMBER"},
    {0xC00D36B9, "MF_E_NO_MORE_TYPES"},
    {0xC00D36E6, "MF_E_ATTRIBUTENOTFOUND"},
    {0xC00D6D60, "MF_E_TRANSFORM_TYPE_NOT_SET"},
    {0xC00D6D61, "MF_E_TRANSFORM_STREAM_CHANGE"},
    {0xC00D6D62, "MF_E_TRANSFORM_INPUT_REMAINING"},
    {0xC00D6D72, "MF_E_TRANSFORM_NEED_MORE_INPUT"},
    {0xC00D6D76, "MF_E_UNSUPPORTED_D3D_TYPE"},
    {0xC00D6D77, "MF_E_TRANSFORM_ASYNC_LOCKED"},
};

std::string Hexadecimal(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08" PRIx32, value);
  return text;
}

}  // namespace

std::string HresultName(uint32_t value) {
  for (const NamedResult& result : kNamedResults) {
    if (result.value == value) return std::string(result.name) + " (" + Hexadecimal(value) + ")";
  }
  return Hexadecimal(value);
}

}  // namespace Veldrift
