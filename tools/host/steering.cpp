#include "steering.h"

#include <string>
#include <utility>

#include "fault_book.h"
#include "support/clock.h"
#include "tools/host/sibling/sibling.h"

namespace Veldrift {

namespace {

constexpr int32_t kDone = 0;
constexpr int32_t kNotDone = 1;
// The main thread is in a call of the module's for longer than that: it won't come back.
constexpr int64_t kPatienceNs = 10 * kNanosPerSecond;

}  // namespace

Steering& Steering::Instance() {
  // Never destroyed: the sibling may call until the process is gone.
  static Steering& steering = *new Steering;
  return steering;
}

bool Steering::LoadSibling(const std::filesystem::path& module, HostApplication host) {
  if (sibling_) return true;
  std::string ignored;
  sibling_ = LoadModule(module.parent_path() / BridgeModuleName(host), ignored);
  if (!sibling_) return false;
  const auto attach = reinterpret_cast<VdAttachHost>(sibling_->FindSymbol(kVdAttachHostExport));
  if (attach != nullptr) attach(&Handle);
  return attach != nullptr;
}

int32_t Steering::Handle(int32_t operation) {
  const bool known = operation >= int32_t(BridgeOperation::PlayPause) &&
                     operation <= int32_t(BridgeOperation::NewClientNudge);
  if (!known) {
    FaultBook::Instance().Note("asked the sibling for operation " + std::to_string(operation));
    return kNotDone;
  }
  return Instance().Ask(BridgeOperation(operation)) ? kDone : kNotDone;
}

bool Steering::Ask(BridgeOperation operation) {
  const auto request = std::make_shared<Request>(Request{operation});
  const int64_t deadline = SteadyNanos() + kPatienceNs;
  MutexLock lock(mutex_);
  if (!open_) return false;
  waiting_.push_back(request);
  changed_.NotifyAll();
  while (open_ && !request->done) {
    if (SteadyNanos() >= deadline) {
      std::erase(waiting_, request);
      FaultBook::Instance().Note("held up the host's main thread while it asked it for something");
      return false;
    }
    SystemClock().WaitUntil(changed_, lock, deadline);
  }
  return request->done;
}

void Steering::Open() {
  const MutexLock lock(mutex_);
  open_ = true;
}

void Steering::Close() {
  const MutexLock lock(mutex_);
  open_ = false;
  waiting_.clear();
  changed_.NotifyAll();
}

void Steering::Serve(int64_t nanos, const std::function<void(BridgeOperation)>& carryOut) {
  const int64_t deadline = SteadyNanos() + nanos;
  while (true) {
    std::shared_ptr<Request> request;
    {
      MutexLock lock(mutex_);
      while (waiting_.empty()) {
        if (SteadyNanos() >= deadline) return;
        SystemClock().WaitUntil(changed_, lock, deadline);
      }
      request = waiting_.front();
      waiting_.pop_front();
    }
    carryOut(request->operation);
    const MutexLock lock(mutex_);
    request->done = true;
    changed_.NotifyAll();
  }
}

}  // namespace Veldrift
