// Standard output as a stream of bytes for another program, which may stop reading or go at any
// time. Only where the receivers are.
//
// Threads: one thread writes; GiveUp may come from any.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace Veldrift {

class OutputPipe {
 public:
  // From now on what this process prints on standard output goes to standard error. Null, with a
  // sentence, if standard output is closed, or a terminal, on which nobody wants bytes.
  static std::unique_ptr<OutputPipe> TakeStandardOutput(std::string& sentence);
  // Writes to that descriptor, and closes it in the end.
  explicit OutputPipe(int descriptor) : descriptor_(descriptor) {}
  ~OutputPipe();
  OutputPipe(const OutputPipe&) = delete;
  OutputPipe& operator=(const OutputPipe&) = delete;

  // Waits for a reader that is slow. False: it has gone, or was given up; nothing is written from
  // then on.
  bool Write(std::span<const std::byte> bytes);

  // Ends a Write that waits.
  void GiveUp() { givenUp_ = true; }

 private:
  bool WriteSome(std::span<const std::byte>& bytes);

  const int descriptor_;
  std::atomic<bool> givenUp_{false};
  bool gone_ = false;
};

}  // namespace Veldrift
