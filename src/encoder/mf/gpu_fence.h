// Waiting for the graphics adapter.
#pragma once

#include <cstdint>
#include <functional>

#include "encoder/mf/com_scope.h"

namespace Veldrift {

enum class FencePoll {
  Done,
  Failed,      // the adapter can't be asked
  OutOfPolls,  // it has been asked as often as is worth it
};

// Asks at most `limit` times; each 1024th time it lets another thread run. `ask` has the form of
// ID3D11DeviceContext::GetData for an event.
FencePoll PollFence(uint32_t limit, const std::function<HRESULT(BOOL& reached)>& ask);

// An event query, which tells that everything before it has been done. Without one, which a driver
// may refuse, a wait hands over what is queued and doesn't wait.
//
// Threads: one at a time, under the lock of who uses the device.
class GpuFence {
 public:
  // Makes the query; without success there is none.
  void Create(ID3D11Device* device);
  void Release() { query_.Reset(); }

  // Until the transform may read what a conversion has written. Gives up after a million polls, as
  // if all were done: a late picture is better than none.
  void WaitForConversion(ID3D11DeviceContext* context) const;
  // Until the adapter has nothing left to do, in at most five million polls. Makes a query for this
  // once if there is none.
  void WaitIdle(ID3D11Device* device, ID3D11DeviceContext* context) const;

 private:
  static void Wait(ID3D11DeviceContext* context, ID3D11Query* query, uint32_t limit);

  ComPtr<ID3D11Query> query_;
};

}  // namespace Veldrift
