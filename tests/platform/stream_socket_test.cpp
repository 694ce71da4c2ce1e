#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/socket.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {
namespace {

constexpr int64_t kPatience = 10'000'000'000;
constexpr int64_t kMoment = 1'000'000;
const uint32_t kLoopback = *ParseAddress("127.0.0.1");

// A listener on loopback, and connections through it.
class StreamSockets : public testing::Test {
 protected:
  void SetUp() override {
    listener_ = ListenTcp(0, kLoopback);
    ASSERT_NE(listener_, nullptr) << ErrorText();
    Connect(near_, far_);
  }

  void Connect(std::unique_ptr<StreamSocket>& connecting, std::unique_ptr<StreamSocket>& accepted,
               uint32_t localAddress = 0) {
    connecting = ConnectTcp({kLoopback, listener_->Port()}, localAddress, kPatience);
    ASSERT_NE(connecting, nullptr) << ErrorText();
    accepted = listener_->Accept(kPatience);
    ASSERT_NE(accepted, nullptr) << ErrorText();
  }

  static StreamSocket::SendResult Send(StreamSocket& socket, std::string_view text) {
    size_t sent = 0;
    return socket.TrySend(std::as_bytes(std::span(text)), sent);
  }

  // What one Receive of at most `size` bytes gives; "closed" or "failed" when there is nothing.
  static std::string Receive(StreamSocket& socket, size_t size) {
    std::string text(size, '\0');
    const auto count = socket.Receive(std::as_writable_bytes(std::span(text)));
    if (count == 0) return "closed";
    if (count < 0) return "failed";
    text.resize(static_cast<size_t>(count));
    return text;
  }

  SocketLayer layer_;
  std::unique_ptr<StreamListener> listener_;
  std::unique_ptr<StreamSocket> near_;  // connected
  std::unique_ptr<StreamSocket> far_;   // accepted
};

TEST_F(StreamSockets, AReceiveTakesWhatIsThereInPieces) {
  ASSERT_EQ(Send(*near_, "abcde"), StreamSocket::SendResult::Sent);
  EXPECT_EQ(Receive(*far_, 2), "ab");
  EXPECT_EQ(Receive(*far_, 2), "cd");
  EXPECT_EQ(Receive(*far_, 2), "e");
}

TEST_F(StreamSockets, BothSidesTalkAndTheBytesBeforeACloseArrive) {
  ASSERT_EQ(Send(*far_, "x"), StreamSocket::SendResult::Sent);
  EXPECT_EQ(Receive(*near_, 9), "x");
  ASSERT_EQ(Send(*near_, "last"), StreamSocket::SendResult::Sent);
  near_.reset();
  EXPECT_EQ(Receive(*far_, 9), "last");
  EXPECT_EQ(Receive(*far_, 9), "closed");
}

// The stop comes a little later from round to round: before the wait at first, in it at last.
void ExpectItEndsAWaitingReceive(StreamSocket& socket, void (StreamSocket::*stop)(),
                                 std::unique_ptr<StreamSocket>& peer, int round) {
  std::atomic<bool> begun{false};
  auto received = std::async(std::launch::async, [&] {
    std::byte byte;
    begun = true;
    return socket.Receive({&byte, 1});
  });
  while (!begun) std::this_thread::yield();
  for (int i = 0; i < 100 * round; ++i) std::this_thread::yield();
  (socket.*stop)();
  const auto status = received.wait_for(std::chrono::nanoseconds(kPatience));
  EXPECT_EQ(status, std::future_status::ready) << "the receive wasn't woken";
  if (status != std::future_status::ready) peer.reset();
  EXPECT_EQ(received.get(), 0);
}

TEST_F(StreamSockets, StopReceivingEndsAWaitingReceive) {
  for (int round = 0; round < 50 && !HasFailure(); ++round) {
    Connect(near_, far_);
    ExpectItEndsAWaitingReceive(*far_, &StreamSocket::StopReceiving, near_, round);
  }
}

TEST_F(StreamSockets, DisconnectEndsAWaitingReceive) {
  for (int round = 0; round < 50 && !HasFailure(); ++round) {
    Connect(near_, far_);
    ExpectItEndsAWaitingReceive(*far_, &StreamSocket::Disconnect, near_, round);
  }
}

TEST_F(StreamSockets, AfterStopReceivingNothingIsReceivedButSendingGoesOn) {
  ASSERT_EQ(Send(*near_, "waiting"), StreamSocket::SendResult::Sent);
  ASSERT_EQ(Receive(*far_, 1), "w");
  far_->StopReceiving();
  far_->StopReceiving();
  EXPECT_EQ(Receive(*far_, 9), "closed");
  EXPECT_EQ(Send(*far_, "reply"), StreamSocket::SendResult::Sent);
  EXPECT_EQ(Receive(*near_, 9), "reply");
}

TEST_F(StreamSockets, DisconnectEndsBothDirections) {
  far_->Disconnect();
  far_->Disconnect();
  EXPECT_EQ(Receive(*near_, 9), "closed");
  EXPECT_EQ(Receive(*far_, 9), "closed");
  EXPECT_EQ(Send(*far_, "x"), StreamSocket::SendResult::Failed);
}

TEST_F(StreamSockets, AfterDisconnectWhatWaitedIsNotReceived) {
  ASSERT_EQ(Send(*near_, "waiting"), StreamSocket::SendResult::Sent);
  ASSERT_EQ(Receive(*far_, 1), "w");
  far_->Disconnect();
  EXPECT_EQ(Receive(*far_, 9), "closed");
}

TEST_F(StreamSockets, APeerThatDoesNotReadFillsTheBufferAndLosesNothing) {
  const std::vector<std::byte> block(65'536, std::byte{7});
  size_t handedOver = 0;
  auto result = StreamSocket::SendResult::Sent;
  for (int i = 0; i < 10'000 && result == StreamSocket::SendResult::Sent; ++i) {
    size_t sent = 0;
    result = far_->TrySend(block, sent);
    handedOver += sent;
  }
  ASSERT_EQ(result, StreamSocket::SendResult::BufferFull);

  std::vector<std::byte> buffer(65'536);
  size_t arrived = 0;
  while (arrived < handedOver) {
    const auto count = near_->Receive(buffer);
    ASSERT_GT(count, 0);
    arrived += static_cast<size_t>(count);
  }
  EXPECT_EQ(arrived, handedOver);
  EXPECT_EQ(Send(*far_, "again"), StreamSocket::SendResult::Sent);
  EXPECT_EQ(Receive(*near_, 9), "again");
}

TEST_F(StreamSockets, SendingToAPeerThatIsGoneFailsAndRaisesNoSignal) {
  near_.reset();
  ASSERT_EQ(Receive(*far_, 9), "closed");
  auto result = StreamSocket::SendResult::Sent;
  for (int i = 0; i < 1'000'000 && result == StreamSocket::SendResult::Sent; ++i) {
    result = Send(*far_, "x");
  }
  EXPECT_EQ(result, StreamSocket::SendResult::Failed);
}

TEST_F(StreamSockets, AcceptedOnesSendAtOnceAndNoticeADeadPeer) {
  const StreamSettings settings = ReadStreamSettings(*far_);
  EXPECT_EQ(settings.noDelay, 1);
  EXPECT_EQ(settings.keepAlive, 1);
  // Some systems take these three and don't tell them.
  EXPECT_THAT(settings.keepAliveIdleSeconds, testing::AnyOf(10, -1));
  EXPECT_THAT(settings.keepAliveIntervalSeconds, testing::AnyOf(5, -1));
  EXPECT_THAT(settings.keepAliveCount, testing::AnyOf(3, -1));
}

TEST_F(StreamSockets, ThePeersAddressIsWhereItConnectedFrom) {
  const uint32_t second = *ParseAddress("127.0.0.2");
  Connect(near_, far_, second);
  EXPECT_EQ(far_->Peer().address, second);
  EXPECT_NE(far_->Peer().port, 0);
  EXPECT_EQ(near_->Peer(), (Ipv4Endpoint{kLoopback, listener_->Port()}));
}

TEST_F(StreamSockets, AcceptGivesUpWhenNobodyComes) {
  EXPECT_EQ(listener_->Accept(kMoment), nullptr);
}

TEST_F(StreamSockets, ARefusedConnectionAndAForeignAddressAreErrorsWithAText) {
  const uint16_t port = listener_->Port();
  listener_.reset();
  EXPECT_EQ(ConnectTcp({kLoopback, port}, 0, kPatience), nullptr);
  const std::string text = ErrorText();
  ASSERT_FALSE(text.empty());
  EXPECT_NE(text.back(), '\n');
  EXPECT_EQ(ListenTcp(0, *ParseAddress("192.0.2.1")), nullptr);
  EXPECT_NE(ErrorText(), text);
}

TEST_F(StreamSockets, TheLayerLastsUntilItsLastUser) {
  { SocketLayer another; }
  Connect(near_, far_);
  EXPECT_EQ(Send(*near_, "x"), StreamSocket::SendResult::Sent);
}

// A host starts programs of its own, which may outlive it.
TEST_F(StreamSockets, AProgramThatWasStartedMeanwhileHoldsNoneOfThem) {
  const ScratchFolder folder;
  const auto child = StartChild("ChildProcess.DISABLED_NeverEnds", folder.Path());
  ASSERT_NE(child, nullptr);
  ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(folder.Path() / "running"); }));
  const uint16_t port = listener_->Port();
  listener_.reset();
  far_.reset();
  auto received = std::async(std::launch::async, [&] { return Receive(*near_, 9); });
  const auto status = received.wait_for(std::chrono::nanoseconds(kPatience));
  EXPECT_EQ(status, std::future_status::ready) << "the child holds the connection";
  if (status != std::future_status::ready) near_->Disconnect();
  EXPECT_EQ(received.get(), "closed");
  near_.reset();
  EXPECT_EQ(ConnectTcp({kLoopback, port}, 0, kPatience), nullptr) << "the child holds the port";
}

TEST(TcpPortInUse, SeesAListenerAndNotWhatIsGone) {
  const SocketLayer layer;
  auto listener = ListenTcp(0);
  ASSERT_NE(listener, nullptr);
  const uint16_t port = listener->Port();
  EXPECT_TRUE(TcpPortInUse(port));
  listener.reset();
  EXPECT_FALSE(TcpPortInUse(port));
}

}  // namespace
}  // namespace Veldrift
