// Messages to a phone that reads slowly, reads on, or never again.
#include "net/control_connection.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

// A connection whose kernel buffer takes what the test lets it take.
class NarrowSocket final : public StreamSocket {
 public:
  std::ptrdiff_t Receive(std::span<std::byte>) override { return 0; }
  SendResult TrySend(std::span<const std::byte> bytes, size_t& sent) override {
    sent = 0;
    if (broken) return SendResult::Failed;
    if (room == 0) return SendResult::BufferFull;
    sent = std::min(room, bytes.size());
    room -= sent;
    arrived.append(reinterpret_cast<const char*>(bytes.data()), sent);
    return SendResult::Sent;
  }
  void StopReceiving() override {}
  void Disconnect() override { disconnected = true; }
  Ipv4Endpoint Peer() const override { return {}; }
  int64_t Number() const override { return 7; }

  size_t room = 0;
  bool broken = false, disconnected = false;
  std::string arrived;
};

class ControlConnectionTest : public testing::Test {
 protected:
  ControlConnectionTest() {
    auto socket = std::make_unique<NarrowSocket>();
    kernel = socket.get();
    connection = std::make_unique<ControlConnection>(std::move(socket), clock);
  }
  bool Send(std::string_view payload) {
    return connection->SendMessage('#', std::as_bytes(std::span(payload)));
  }

  const ScratchHome home;
  ManualClock clock;
  NarrowSocket* kernel = nullptr;
  std::unique_ptr<ControlConnection> connection;
};

TEST_F(ControlConnectionTest, MessagesArriveWholeAndInOrderHoweverThePhoneReads) {
  std::string wanted;
  for (int i = 0; i < 40; ++i) {
    // The middle of a message more often than not, also of one that nothing waits before.
    kernel->room += size_t((i + 3) % 7);
    const std::string payload = "message " + std::to_string(i);
    EXPECT_TRUE(Send(payload));
    wanted += '#' + payload;
    EXPECT_TRUE(wanted.starts_with(kernel->arrived)) << kernel->arrived;
  }
  EXPECT_TRUE(connection->Flush());
  kernel->room = 30;
  EXPECT_TRUE(connection->Flush()) << "something is left";
  kernel->room = 10'000;
  EXPECT_FALSE(connection->Flush());
  EXPECT_EQ(kernel->arrived, wanted);
}

TEST_F(ControlConnectionTest, AFullBufferEndsItAfterFiveSecondsAndNotBefore) {
  EXPECT_TRUE(Send("waits"));
  clock.Advance(4'900 * kNanosPerMilli);
  EXPECT_TRUE(Send("waits"));
  kernel->room = 1;  // it reads on, if slowly
  EXPECT_TRUE(Send("waits"));
  clock.Advance(4'900 * kNanosPerMilli);
  EXPECT_TRUE(Send("waits"));
  EXPECT_FALSE(kernel->disconnected);
  clock.Advance(200 * kNanosPerMilli);
  EXPECT_FALSE(Send("too late"));
  EXPECT_TRUE(kernel->disconnected);
}

TEST_F(ControlConnectionTest, ManyMessagesDoNotEndItBeforeThatTime) {
  const std::string payload(200, 'x');
  for (int i = 0; i < 5'000; ++i) ASSERT_TRUE(Send(payload)) << i;
  // But memory ends somewhere.
  int more = 0;
  while (Send(payload)) ASSERT_LT(++more, 100'000);
  EXPECT_TRUE(kernel->disconnected);
}

TEST_F(ControlConnectionTest, ABrokenOneAnswersFalseAndIsLeftToItsReader) {
  kernel->room = 3;
  EXPECT_TRUE(Send("cut off"));
  kernel->broken = true;
  EXPECT_FALSE(Send("never"));
  EXPECT_FALSE(connection->Flush());
  EXPECT_FALSE(kernel->disconnected);
}

}  // namespace
}  // namespace Veldrift
