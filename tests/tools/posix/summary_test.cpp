// What the phone says at its end, for people.
#include "tools/phone/summary.h"

#include <gtest/gtest.h>

#include "net/control_protocol.h"

namespace Veldrift {
namespace {

SentCommand Sent(uint8_t opcode, std::optional<int64_t> acknowledgedMicros) {
  SentCommand sent;
  sent.command.opcode = opcode;
  if (acknowledgedMicros) sent.acknowledgedNs = *acknowledgedMicros * 1000;
  return sent;
}

TEST(Summary, HasOneLineForAllCommandsOfAKind) {
  const DecodingSink decoding(nullptr);
  RunResult result{{}, {}, {}, {}, decoding, nullptr, nullptr, "", {}, {}, {}, 0, nullptr};
  result.sent = {Sent(kSetEncoderMode, 1'500), Sent(kSetCodec, 2'000), Sent(kSetEncoderMode, 900),
                 Sent(kSetEncoderMode, std::nullopt), Sent(kSetGopMode, std::nullopt)};
  const std::string text = SummaryText(result);
  const std::string lines = text.substr(std::min(text.find("  set-"), text.size()));
  EXPECT_EQ(lines,
            "  set-encoder-mode       3 sent, 2 acknowledged after 0.90 to 1.50 ms\n"
            "  set-codec              acknowledged after 2.00 ms\n"
            "  set-gop                sent\n");
}

}  // namespace
}  // namespace Veldrift
