// The environment variables through which a test scripts the encoders, and the trace that it reads
// back. The variables are those of the Windows process, read when they are needed, so that a test
// sets them in its own process. client/scenario.h says what they mean.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/transforms/common/kinds.h"

namespace Veldrift::Transforms {

inline constexpr char kListVariable[] = "VD_TRANSFORMS";
inline constexpr char kExactListVariable[] = "VD_TRANSFORMS_EXACT";
inline constexpr char kTraitsVariable[] = "VD_TRANSFORM";
inline constexpr char kTraceVariable[] = "VD_TRANSFORM_TRACE";
inline constexpr char kPicturesVariable[] = "VD_TRANSFORM_PICTURES";
inline constexpr char kPlatformFailVariable[] = "VD_PLATFORM_FAIL";

// Empty if it isn't set.
std::string ReadVariable(const std::string& name);

// At blanks and commas.
std::vector<std::string> SplitWords(std::string_view text);

// "nvidia-async-hevc".
std::string NameOf(const Kind& kind);

// Whether `word` means the kind: its name, or its family for both codecs.
bool Means(std::string_view word, const Kind& kind);

// What all variables that concern the kind say, the more particular ones last: VD_TRANSFORM,
// VD_TRANSFORM_NVIDIA_ASYNC, VD_TRANSFORM_NVIDIA_ASYNC_HEVC.
std::string ReadTraits(const Kind& kind);

// Appends a line "who call details result" to the trace, whole also beside other threads and
// processes. Without the variable it does nothing.
void Trace(const std::string& who, const char* call, const std::string& details, HRESULT result);

// Appends to the file that a variable names, whole also beside other threads and processes. Without
// the variable it does nothing.
void AppendTo(const char* variable, std::string_view bytes);

// A decimal number, whole. False: it isn't one.
bool ReadNumber(std::string_view text, int& number);

// Eight hexadecimal digits.
bool ReadResult(std::string_view text, HRESULT& result);

}  // namespace Veldrift::Transforms
