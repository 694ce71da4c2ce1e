// The product's own mock, which its self test stands on. It is private to that file, so the file is
// compiled here once more.
#include "encoder/encoder_pipeline_self_test.cpp"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

std::unique_ptr<MockEncoder> NewMock(bool emitOnShutdown, std::string& keys) {
  auto mock = std::make_unique<MockEncoder>(100, 100, 30, 1, 1'000'000, emitOnShutdown);
  mock->SetOutputCallback([&keys](const uint8_t*, uint64_t size, bool keyFrame, uint64_t) {
    EXPECT_EQ(size, 4U);
    keys += keyFrame ? 'K' : '.';
  });
  return mock;
}

void Push(IHardwareEncoder& encoder) { encoder.EncodeFrame(nullptr, 0, 0, 0, 0); }

TEST(MockEncoder, ItsFirstTwoFramesAreKeyFramesAndThenTheRequestedOnes) {
  std::string keys;
  const auto mock = NewMock(false, keys);
  EXPECT_FALSE(mock->HasEmittedKeyframe());
  for (int frame = 0; frame < 5; ++frame) {
    if (frame == 3) mock->RequestKeyframe();
    Push(*mock);
    EXPECT_TRUE(mock->HasEmittedKeyframe());
  }
  EXPECT_EQ(keys, "KK.K.");
  mock->Shutdown();
  EXPECT_EQ(keys, "KK.K.");
}

TEST(MockEncoder, EmitsAKeyFrameFromShutdownIfItShould) {
  std::string keys;
  const auto mock = NewMock(true, keys);
  mock->Shutdown();
  EXPECT_EQ(keys, "K");
  mock->SetOutputCallback({});
  mock->Shutdown();
  EXPECT_EQ(keys, "K");
}

TEST(MockEncoder, ACloneHasTheSettingsAndStartsAnew) {
  std::string keys;
  const auto mock = NewMock(true, keys);
  for (int frame = 0; frame < 3; ++frame) Push(*mock);
  const std::unique_ptr<IHardwareEncoder> clone = mock->Clone({200, 160, 25, 2'000'000});
  EXPECT_EQ(clone->GetWidth(), 200);
  EXPECT_EQ(clone->GetHeight(), 160);
  EXPECT_FALSE(clone->HasEmittedKeyframe());
  clone->SetOutputCallback(
      [&keys](const uint8_t*, uint64_t, bool keyFrame, uint64_t) { keys += keyFrame ? 'k' : ','; });
  Push(*clone);
  clone->Shutdown();
  EXPECT_EQ(keys, "KK.kk");
}

}  // namespace
}  // namespace Veldrift
