#include "tests/support/thread_shortage.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {
std::atomic<bool> refuse{false};
}

namespace Veldrift {
void RefuseNextThread() { refuse = true; }
}  // namespace Veldrift

// In front of the system's own, for the program and all that it loads.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
    void* argument) noexcept {
  if (refuse.exchange(false)) return EAGAIN;
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, body, argument);
}
