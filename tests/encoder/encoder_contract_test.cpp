// The contract, asked of the shell over scripted backends and of the doubles.
#include "tests/support/encoder_contract.h"

#include "tests/support/late_encoder.h"
#include "tests/support/scripted_backend.h"
#include "tests/support/scripted_encoder.h"
#include "tests/support/scripted_transform.h"

namespace Veldrift {
namespace {

EncoderUnderTest Shell(const std::string& name, int32_t codec, bool asynchronous) {
  EncoderUnderTest shell;
  shell.name = name;
  shell.make = [asynchronous] {
    const auto script = std::make_shared<BackendScript>();
    script->Change([&](auto& now) { now.asynchronous = asynchronous; });
    return MakeScriptedShell(script);
  };
  shell.codec = codec;
  shell.ownThread = asynchronous;
  return shell;
}

EncoderUnderTest Transform(const std::string& name, int32_t codec, bool asynchronous) {
  EncoderUnderTest encoder;
  encoder.name = name;
  encoder.make = [asynchronous] {
    const auto script = std::make_shared<TransformScript>();
    script->Change([&](auto& now) {
      now.transforms[0].asynchronous = now.transforms[0].sendsEvents = asynchronous;
    });
    return MakeTransformEncoder(script);
  };
  encoder.codec = codec;
  encoder.ownThread = encoder.dropsLate = asynchronous;
  return encoder;
}

EncoderUnderTest Scripted() {
  EncoderUnderTest encoder;
  encoder.name = "ScriptedEncoder";
  encoder.make = [] {
    return std::make_unique<ScriptedEncoder>(std::make_shared<EncoderScript>());
  };
  encoder.realUnits = encoder.placesKeyFrames = false;
  return encoder;
}

EncoderUnderTest Late() {
  EncoderUnderTest encoder;
  encoder.name = "LateEncoder";
  encoder.make = [] { return std::make_unique<LateEncoder>(); };
  encoder.realUnits = encoder.placesKeyFrames = false;
  encoder.ownThread = true;
  return encoder;
}

INSTANTIATE_TEST_SUITE_P(Shell, EncoderContract,
                         testing::Values(Shell("Hevc", kCodecHevc, false),
                                         Shell("H264", kCodecH264, false),
                                         Shell("OwnThread", kCodecHevc, true)),
                         EncoderContract::Name);
INSTANTIATE_TEST_SUITE_P(Transform, EncoderContract,
                         testing::Values(Transform("Hevc", kCodecHevc, false),
                                         Transform("H264", kCodecH264, false),
                                         Transform("AsyncHevc", kCodecHevc, true),
                                         Transform("AsyncH264", kCodecH264, true)),
                         EncoderContract::Name);
INSTANTIATE_TEST_SUITE_P(Doubles, EncoderContract, testing::Values(Scripted(), Late()),
                         EncoderContract::Name);

}  // namespace
}  // namespace Veldrift
