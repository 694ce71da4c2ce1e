#include "tests/support/thread_shortage.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {
std::atomic<bool> refuse{false};
}

namespace Veldrift {
void RefuseNextThread() { refuse = true; }
}  // namespace Veldrift

// The linker puts this in front of the library's own (--wrap).
extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*body)(void*), void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*body)(void*), void* argument) {
  if (refuse.exchange(false)) return EAGAIN;
  return __real_pthread_create(thread, attributes, body, argument);
}
