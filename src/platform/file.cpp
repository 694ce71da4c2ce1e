#include "platform/file.h"

namespace Veldrift {

std::optional<std::string> ReadWholeFile(const std::filesystem::path& path) {
  std::string text;
  if (ReadWholeFile(path, text) != FileRead::Read) return std::nullopt;
  return text;
}

}  // namespace Veldrift
