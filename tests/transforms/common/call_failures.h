// Calls that are to fail: which, from which time on, until when, and with what.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Veldrift::Transforms {

// Threads: one at a time.
class CallFailures {
 public:
  // "ProcessInput", "ProcessInput@5" (from the fifth call on), "ProcessInput@5..7", each with
  // "=C00D36B4" behind it for another result than E_FAIL. False: not of this form.
  bool Add(std::string_view text);

  // Counts a call. S_OK, or what it is to answer instead of being done.
  HRESULT Count(std::string_view call);

 private:
  struct Failure {
    std::string call;
    int first = 1;
    int last = 0;  // 0: for ever
    HRESULT result = E_FAIL;
    int calls = 0;
  };

  static bool ReadRange(std::string_view text, Failure& failure);

  std::vector<Failure> failures_;
};

// Failures whose counts outlive the objects that are called. They begin anew when the text changes.
// Threads: one at a time.
class LastingFailures {
 public:
  // Takes the words of `text` that begin with `prefix`; E_INVALIDARG if one of them can't be read.
  HRESULT Count(const std::string& text, std::string_view prefix, std::string_view call);

 private:
  std::string text_;
  bool understood_ = true;
  CallFailures failures_;
};

}  // namespace Veldrift::Transforms
