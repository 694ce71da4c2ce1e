#include "encoder/emission_thread.h"

#include <utility>

#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

}  // namespace

EmissionThread::EmissionThread(std::shared_ptr<OutputPort> port)
    : port_(std::move(port)), thread_([this] { Loop(); }) {}

EmissionThread::~EmissionThread() {
  {
    MutexLock lock(mutex_);
    ending_ = true;
    changed_.NotifyAll();
  }
  thread_.join();
}

void EmissionThread::Wake() {
  MutexLock lock(mutex_);
  posted_ = true;
  changed_.NotifyAll();
}

void EmissionThread::Loop() {
  while (AwaitWork()) RunGuarded(kCategory, "the emission", [this] { port_->Emit(); });
}

bool EmissionThread::AwaitWork() {
  MutexLock lock(mutex_);
  while (!posted_ && !ending_) changed_.Wait(lock);
  return std::exchange(posted_, false);
}

}  // namespace Veldrift
