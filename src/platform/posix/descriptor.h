// A file descriptor that closes itself, and leaves errno alone when it does.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Veldrift {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    const int error = errno;
    if (number_ >= 0) close(number_);
    errno = error;
  }

  explicit operator bool() const { return number_ >= 0; }
  int Get() const { return number_; }

  // Closes it now. False if the system reports a late write error.
  bool Close() { return close(std::exchange(number_, -1)) == 0; }

 private:
  int number_ = -1;
};

}  // namespace Veldrift
