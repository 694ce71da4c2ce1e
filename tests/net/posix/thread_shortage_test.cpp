// A connection for which no thread can be had.
#include "tests/support/thread_shortage.h"

#include <gtest/gtest.h>

#include "net/control_protocol.h"
#include "net/network_transport.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"

namespace Veldrift {
namespace {

TEST(ThreadShortage, CostsOneConnectionAndTheNextPhoneGetsIn) {
  const ScratchHome home;
  const SocketLayer layer;
  ManualClock clock;
  const auto shown = std::make_shared<ShownCode>();
  NetworkTransport transport(clock);
  TransportCallables callables;
  callables.createPairingDialog = ShowTo(shown);
  transport.SetCallables(std::move(callables));
  transport.StartListening(0);
  ASSERT_TRUE(Eventually([&] { return transport.ListeningPort() != 0; }));

  RefuseNextThread();
  TestPhone unlucky = TestPhone::Connect(transport.ListeningPort());
  ASSERT_TRUE(unlucky.Connected());
  ASSERT_TRUE(Eventually([] { return CountInPluginLog("a new connection ended by") == 1; }));
  ASSERT_TRUE(Eventually([] { return CountInPluginLog("control read loop exit fd=") == 1; }));
  EXPECT_TRUE(unlucky.SeesTheEnd());
  EXPECT_FALSE(transport.SendControl(kPairRejected, {})) << "nobody is there";

  clock.Advance(kNanosPerSecond);
  TestPhone next = TestPhone::Connect(transport.ListeningPort());
  ASSERT_TRUE(next.Connected());
  EXPECT_FALSE(PairByCode(next, *shown).empty());
}

}  // namespace
}  // namespace Veldrift
