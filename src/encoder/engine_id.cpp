#include "encoder/engine_catalogue.h"

namespace Veldrift {

std::string NormaliseEngineId(std::string_view id) {
  if (id.empty()) return "auto";
  std::string normal(id);
  for (char& c : normal) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return normal;
}

}  // namespace Veldrift
