// What every call of a transform goes through: is it to fail, is the device gone; and the trace.
#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <utility>

#include "tests/transforms/common/call_failures.h"
#include "tests/transforms/common/environment.h"

namespace Veldrift::Transforms {

// Threads: any.
class CallGate {
 public:
  CallGate(std::string who, CallFailures failures)
      : who_(std::move(who)), failures_(std::move(failures)) {}

  // From now on every call answers `result`, a failure.
  void Close(HRESULT result) {
    const std::lock_guard lock(mutex_);
    closed_ = result;
  }

  // S_OK, or what a call of this name was ordered to answer.
  HRESULT CountOrdered(const char* call) {
    const std::lock_guard lock(mutex_);
    return failures_.Count(call);
  }

  // The same, and nothing works any more once the gate is closed.
  HRESULT Count(const char* call) {
    const std::lock_guard lock(mutex_);
    const HRESULT failure = failures_.Count(call);
    return FAILED(closed_) ? closed_ : failure;
  }

  // Does the call, unless it is to fail, and traces it. `body` may say more in the details it gets.
  template <class Body>
  HRESULT Answer(const char* call, Body&& body) {
    std::string details;
    HRESULT result = Count(call);
    if (SUCCEEDED(result)) result = body(details);
    Trace(who_, call, details, result);
    return result;
  }

  void Note(const char* what, const std::string& details, HRESULT result) const {
    Trace(who_, what, details, result);
  }

 private:
  const std::string who_;
  std::mutex mutex_;
  CallFailures failures_;  // guarded by mutex_
  HRESULT closed_ = S_OK;  // guarded by mutex_
};

}  // namespace Veldrift::Transforms
