#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/socket.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {
namespace {

constexpr int64_t kPatience = 10'000'000'000;
constexpr int64_t kMoment = 1'000'000;
const uint32_t kLoopback = *ParseAddress("127.0.0.1");

class DatagramSockets : public testing::Test {
 protected:
  void SetUp() override {
    receiver_ = OpenDatagramReceiver({kLoopback, 0}, 262'144);
    ASSERT_NE(receiver_, nullptr) << ErrorText();
    sender_ = OpenDatagramSender();
    ASSERT_NE(sender_, nullptr) << ErrorText();
  }

  DatagramSocket::SendResult Send(std::string_view text) {
    return sender_->Send(std::as_bytes(std::span(text)), {kLoopback, receiver_->Port()});
  }

  // One datagram's text, cut to `size`; "none" when none came.
  std::string Receive(size_t size, int64_t timeoutNanos = kPatience) {
    std::string text(size, '\0');
    const auto count = receiver_->Receive(std::as_writable_bytes(std::span(text)), timeoutNanos);
    if (count < 0) return "none";
    text.resize(static_cast<size_t>(count));
    return text;
  }

  SocketLayer layer_;
  std::unique_ptr<DatagramSocket> receiver_;
  std::unique_ptr<DatagramSocket> sender_;
};

TEST_F(DatagramSockets, EachDatagramArrivesAloneAndCutToTheBuffer) {
  ASSERT_EQ(Send("first"), DatagramSocket::SendResult::Sent);
  ASSERT_EQ(Send(""), DatagramSocket::SendResult::Sent);
  ASSERT_EQ(Send("longer than that"), DatagramSocket::SendResult::Sent);
  ASSERT_EQ(Send("end"), DatagramSocket::SendResult::Sent);
  EXPECT_EQ(Receive(64), "first");
  EXPECT_EQ(Receive(64), "");
  EXPECT_EQ(Receive(6), "longer");
  EXPECT_EQ(Receive(64), "end");
  EXPECT_EQ(Receive(64, kMoment), "none");
}

TEST_F(DatagramSockets, WhatIsTooLongForADatagramFails) {
  const std::vector<std::byte> tooLong(70'000);
  EXPECT_EQ(sender_->Send(tooLong, {kLoopback, receiver_->Port()}),
            DatagramSocket::SendResult::Failed);
  EXPECT_FALSE(ErrorText().empty());
}

TEST_F(DatagramSockets, ADeadPortDoesNotSpoilTheSender) {
  const uint16_t deadPort = OpenDatagramReceiver({kLoopback, 0}, 65'536)->Port();
  const std::byte byte{};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(sender_->Send({&byte, 1}, {kLoopback, deadPort}), DatagramSocket::SendResult::Sent);
  }
  ASSERT_EQ(Send("alive"), DatagramSocket::SendResult::Sent);
  EXPECT_EQ(Receive(64), "alive");
}

TEST_F(DatagramSockets, APortInUseIsRefusedWithAText) {
  ASSERT_NE(receiver_->Port(), 0);
  EXPECT_EQ(OpenDatagramReceiver({kLoopback, receiver_->Port()}, 65'536), nullptr);
  EXPECT_FALSE(ErrorText().empty());
}

}  // namespace
}  // namespace Veldrift
