#include "encoder/engine_catalogue.h"
#include "support/text.h"

namespace Veldrift {

std::string NormaliseEngineId(std::string_view id) {
  if (id.empty()) return "auto";
  return LowerCase(id);
}

}  // namespace Veldrift
