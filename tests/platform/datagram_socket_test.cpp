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

// The contract of every kind of receiving socket.
struct Kind {
  const char* name;
  std::unique_ptr<DatagramSocket> (*open)(const Ipv4Endpoint&, int);
};

class DatagramSockets : public testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    receiver_ = Open({kLoopback, 0}, 524'288);
    ASSERT_NE(receiver_, nullptr) << ErrorText();
    sender_ = OpenDatagramSender();
    ASSERT_NE(sender_, nullptr) << ErrorText();
  }

  std::unique_ptr<DatagramSocket> Open(const Ipv4Endpoint& local, int bytes) {
    return GetParam().open(local, bytes);
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

TEST_P(DatagramSockets, ManyGoOutInOrderAndComeInTogetherWithTheirSender) {
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

// The system may be given equal ones together: each still arrives as it was, in its turn.
TEST_P(DatagramSockets, LengthsAndContentsSurviveWhateverGoesTogether) {
  const std::vector<std::vector<size_t>> rows = {
      {1404, 1404, 1404, 700, 1402, 1402},    // a shorter last one, and others behind it
      {700, 1404, 1404},                      // a longer one behind the first
      {9, 9, 0, 9, 9, 4, 9, 0, 0},            // empty ones between
      std::vector<size_t>(100, 1200),         // more than one call takes
      std::vector<size_t>(3, 30'000),         // together longer than a datagram can be
      {1404, 1404, 1, 1, 1, 1404, 700, 699},  // falling
  };
  for (const std::vector<size_t>& lengths : rows) {
    std::vector<std::string> texts;
    for (const size_t length : lengths) {
      texts.push_back(std::string(length, char('A' + texts.size() % 26)));
    }
    std::vector<std::span<const std::byte>> all;
    for (const std::string& text : texts) all.push_back(std::as_bytes(std::span(text)));
    size_t sent = 0;
    ASSERT_EQ(sender_->SendMany(all, {kLoopback, receiver_->Port()}, sent),
              DatagramSocket::SendResult::Sent);
    EXPECT_EQ(sent, lengths.size());
    for (const std::string& text : texts) ASSERT_EQ(Receive(40'000), text);
    EXPECT_EQ(Receive(64, kMoment), "none");
  }
}

TEST_P(DatagramSockets, EachDatagramArrivesAloneAndCutToTheBuffer) {
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

TEST_P(DatagramSockets, WhatIsTooLongForADatagramFails) {
  const std::vector<std::byte> tooLong(70'000);
  EXPECT_EQ(sender_->Send(tooLong, {kLoopback, receiver_->Port()}),
            DatagramSocket::SendResult::Failed);
  EXPECT_FALSE(ErrorText().empty());
}

TEST_P(DatagramSockets, ADeadPortDoesNotSpoilTheSender) {
  const uint16_t deadPort = Open({kLoopback, 0}, 65'536)->Port();
  const std::byte byte{};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(sender_->Send({&byte, 1}, {kLoopback, deadPort}), DatagramSocket::SendResult::Sent);
  }
  ASSERT_EQ(Send("alive"), DatagramSocket::SendResult::Sent);
  EXPECT_EQ(Receive(64), "alive");
}

TEST_P(DatagramSockets, APortInUseIsRefusedWithAText) {
  ASSERT_NE(receiver_->Port(), 0);
  EXPECT_EQ(Open({kLoopback, receiver_->Port()}, 65'536), nullptr);
  EXPECT_FALSE(ErrorText().empty());
}

INSTANTIATE_TEST_SUITE_P(Receivers, DatagramSockets,
                         testing::Values(Kind{"OneByOne", OpenDatagramReceiver},
                                         Kind{"InRuns", OpenRunReceiver}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace Veldrift
