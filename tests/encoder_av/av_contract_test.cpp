// The contract, asked of the libavcodec encoder.
#include "encoder/av/av_backend.h"
#include "tests/support/encoder_contract.h"

namespace Veldrift {
namespace {

EncoderUnderTest Av(const std::string& name, int32_t codec) {
  EncoderUnderTest encoder;
  encoder.name = name;
  encoder.make = [] { return MakeAvEncoder("auto"); };
  encoder.codec = codec;
  return encoder;
}

INSTANTIATE_TEST_SUITE_P(Av, EncoderContract,
                         testing::Values(Av("Hevc", kCodecHevc), Av("H264", kCodecH264)),
                         EncoderContract::Name);

}  // namespace
}  // namespace Veldrift
