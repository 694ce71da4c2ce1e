#include "tests/support/thread_shortage.h"
#include "tests/window/pairing_fixture.h"

namespace Veldrift {
namespace {

TEST_F(PairingWindowTest, WithoutAThreadThereIsNoWindowAndNoHarm) {
  RefuseNextThread();
  ExpectNoWindow("pair_dialog:ERROR] pairing dialog's start ended by an exception");
  ASSERT_NO_FATAL_FAILURE(ShowInFront());  // the next phone's
}

}  // namespace
}  // namespace Veldrift
