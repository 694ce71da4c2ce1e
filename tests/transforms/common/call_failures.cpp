#include "tests/transforms/common/call_failures.h"

#include "tests/transforms/common/environment.h"

namespace Veldrift::Transforms {

bool CallFailures::ReadRange(std::string_view text, Failure& failure) {
  const size_t dots = text.find("..");
  if (!ReadNumber(text.substr(0, dots), failure.first) || failure.first < 1) return false;
  if (dots == std::string_view::npos) return true;
  return ReadNumber(text.substr(dots + 2), failure.last) && failure.last >= failure.first;
}

bool CallFailures::Add(std::string_view text) {
  Failure failure;
  if (const size_t equals = text.find('='); equals != std::string_view::npos) {
    if (!ReadResult(text.substr(equals + 1), failure.result)) return false;
    text = text.substr(0, equals);
  }
  if (const size_t at = text.find('@'); at != std::string_view::npos) {
    if (!ReadRange(text.substr(at + 1), failure)) return false;
    text = text.substr(0, at);
  }
  failure.call = text;
  failures_.push_back(failure);
  return !text.empty();
}

HRESULT CallFailures::Count(std::string_view call) {
  HRESULT result = S_OK;
  for (Failure& failure : failures_) {
    if (failure.call != call) continue;
    ++failure.calls;
    const bool due =
        failure.calls >= failure.first && (failure.last == 0 || failure.calls <= failure.last);
    if (due && SUCCEEDED(result)) result = failure.result;
  }
  return result;
}

HRESULT LastingFailures::Count(const std::string& text, std::string_view prefix,
                               std::string_view call) {
  if (text != text_) {
    text_ = text;
    failures_ = {};
    understood_ = true;
    for (const std::string& word : SplitWords(text)) {
      if (word.starts_with(prefix)) {
        understood_ = failures_.Add(std::string_view(word).substr(prefix.size())) && understood_;
      }
    }
  }
  return understood_ ? failures_.Count(call) : E_INVALIDARG;
}

}  // namespace Veldrift::Transforms
