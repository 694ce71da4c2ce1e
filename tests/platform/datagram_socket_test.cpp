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

TEST_F(DatagramSockets, ManyGoOutInOrderAndComeInTogetherWithTheirSender) {
  std::vector<std::string> texts;
  for (int i = 0; i < 100; ++i) texts.push_back("datagram " + std::to_string(i));
  texts[70] = std::string(70'000, 'x');  // no system takes this one
  std::vector<std::span<const std::byte>> all;
  for (const std::string& text : texts) all.push_back(std::as_bytes(std::span(text)));
  const Ipv4Endpoint to{kLoopback, receiver_->Port()};
  size_t sent = 0;
  EXPECT_EQ(sender_->SendMany(all, to, sent), DatagramSocket::SendResult::Failed);
  EXPECT_EQ(sent, 70U);
  EXPECT_EQ(sender_->SendMany(std::span(all).subspan(71), to, sent),
            DatagramSocket::SendResult::Sent);
  EXPECT_EQ(sent, 29U);

  texts.erase(texts.begin() + 70);
  std::vector<std::vector<std::byte>> buffers(7, std::vector<std::byte>(64));
  std::vector<DatagramSocket::Slot> slots;
  for (std::vector<std::byte>& buffer : buffers) slots.push_back({buffer, 0, {}});
  size_t at = 0;
  while (at < texts.size()) {
    const size_t count = receiver_->ReceiveMany(slots, kPatience);
    ASSERT_GT(count, 0U);
    for (size_t i = 0; i < count; ++i, ++at) {
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(slots[i].buffer.data()), slots[i].length),
                texts[at]);
      EXPECT_EQ(slots[i].from.address, kLoopback);
      EXPECT_EQ(slots[i].from.port, sender_->Port());
    }
  }
  EXPECT_EQ(receiver_->ReceiveMany(slots, kMoment), 0U);
}

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
