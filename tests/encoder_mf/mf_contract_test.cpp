// The contract, asked of the Media Foundation encoder over real encoders of each kind.
#include <optional>

#include "tests/encoder_mf/mf_encoder.h"
#include "tests/support/encoder_contract.h"
#include "tests/transforms/client/scenario.h"

namespace Veldrift {
namespace {

EncoderUnderTest Over(const std::string& name, const std::string& kind, int32_t codec,
                      const std::string& traits = "") {
  EncoderUnderTest encoder;
  encoder.name = name;
  encoder.make = [kind, traits] {
    static std::optional<Transforms::Scenario> scenario;
    scenario.reset();
    scenario.emplace(kind);
    scenario->Traits("own-gop=no " + traits);
    return MakeTestedEncoder();
  };
  encoder.codec = codec;
  encoder.ownThread = encoder.dropsLate = kind.ends_with("-async");
  return encoder;
}

INSTANTIATE_TEST_SUITE_P(
    Mf, EncoderContract,
    testing::Values(Over("SoftwareHevc", "software", kCodecHevc),
                    Over("HardwareH264", "nvidia", kCodecH264),
                    Over("LengthsAndRecordsH264", "intel", kCodecH264,
                         "units=lengths header=record sets-in-stream=no lead=300"),
                    Over("AsyncHevc", "nvidia-async", kCodecHevc),
                    Over("AsyncH264", "intel-async", kCodecH264, "header=none provides=no")),
    EncoderContract::Name);

}  // namespace
}  // namespace Veldrift
