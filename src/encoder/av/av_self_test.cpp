#include "encoder/platform_self_test.h"

namespace Veldrift {

bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result) {
  if (name == "P6.2") {
    result = "GPU-resident inactive — the libavcodec encoder converts and encodes on the CPU";
    return false;
  }
  return RaceOutputPort(result);
}

}  // namespace Veldrift
