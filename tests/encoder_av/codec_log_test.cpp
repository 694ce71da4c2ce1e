// Who has libavcodec's log function, one for the whole process.
#include "encoder/av/codec_log.h"

extern "C" {
#include <libavutil/log.h>
}
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>

#include "encoder/av/av_backend.h"

namespace {

using LogFunction = void (*)(void*, int, const char*, va_list);

LogFunction installed = av_log_default_callback;

}  // namespace

// Stands in front of the library's, which can't be asked: it notes what is set and hands it on.
extern "C" __attribute__((visibility("default"))) void av_log_set_callback(LogFunction function) {
  installed = function;
  static const auto kReal =
      reinterpret_cast<void (*)(LogFunction)>(dlsym(RTLD_NEXT, "av_log_set_callback"));
  kReal(function);
}

namespace Veldrift {
namespace {

TEST(CodecLog, TheFunctionIsOursOnlyWhileSomebodyEncodes) {
  const std::unique_ptr<IHardwareEncoder> first = MakeAvEncoder("auto");
  const std::unique_ptr<IHardwareEncoder> second = MakeAvEncoder("auto");
  EXPECT_EQ(installed, av_log_default_callback);
  ASSERT_TRUE(first->Configure(64, 64, 1'000'000, 30));
  EXPECT_NE(installed, av_log_default_callback);
  ASSERT_TRUE(second->Configure(64, 64, 1'000'000, 30));
  first->Shutdown();
  EXPECT_NE(installed, av_log_default_callback);
  second->Shutdown();
  EXPECT_EQ(installed, av_log_default_callback);
}

TEST(CodecLog, MessagesOfOursStayOffStandardErrorAndOthersDont) {
  const int object = 0;
  const CodecLogScope scope(&object);
  testing::internal::CaptureStderr();
  {
    const ThreadLogScope thread;
    av_log(nullptr, AV_LOG_ERROR, "ours\n");
  }
  av_log(nullptr, AV_LOG_ERROR, "somebody else's\n");
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(text.find("ours"), std::string::npos);
  EXPECT_NE(text.find("somebody else's"), std::string::npos);
}

}  // namespace
}  // namespace Veldrift
