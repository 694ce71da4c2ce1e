#include <mfapi.h>
#include <mferror.h>

#include <algorithm>

#include "tests/transforms/module/transform.h"

namespace Veldrift::Transforms {
namespace {

DWORD PictureBytes(const CodecSize& size) {
  return static_cast<DWORD>(size.width) * static_cast<DWORD>(size.height) * 3 / 2;
}

bool SameSize(const CodecSize& one, const CodecSize& other) {
  return one.width == other.width && one.height == other.height && one.fps == other.fps;
}

}  // namespace

HRESULT Transform::GetInputStreamInfo(DWORD id, MFT_INPUT_STREAM_INFO* info) {
  return Answer("GetInputStreamInfo", [&](std::string&) {
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    const std::lock_guard lock(mutex_);
    *info = {};
    info->dwFlags = MFT_INPUT_STREAM_WHOLE_SAMPLES | MFT_INPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER;
    info->cbSize = PictureBytes(format_.size);
    return S_OK;
  });
}

HRESULT Transform::GetOutputStreamInfo(DWORD id, MFT_OUTPUT_STREAM_INFO* info) {
  return Answer("GetOutputStreamInfo", [&](std::string&) {
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    // Small pictures can be larger coded than they were.
    constexpr DWORD kSmallest = 1 << 16;
    const std::lock_guard lock(mutex_);
    *info = {};
    info->dwFlags = MFT_OUTPUT_STREAM_WHOLE_SAMPLES | MFT_OUTPUT_STREAM_SINGLE_SAMPLE_PER_BUFFER;
    if (traits_.providesSamples) info->dwFlags |= MFT_OUTPUT_STREAM_PROVIDES_SAMPLES;
    info->cbSize = traits_.outputSize == kNever ? std::max(PictureBytes(format_.size), kSmallest)
                                                : static_cast<DWORD>(traits_.outputSize);
    return S_OK;
  });
}

HRESULT Transform::GetInputAvailableType(DWORD id, DWORD place, IMFMediaType** type) {
  return Answer("GetInputAvailableType", [&](std::string& details) {
    details = std::to_string(place);
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    const std::lock_guard lock(mutex_);
    if (!outputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
    *type = MakeInputType(place, traits_, format_.size).Detach();
    return *type ? S_OK : MF_E_NO_MORE_TYPES;
  });
}

// What the header is now, and none before the change that is to bring it.
Bytes Transform::HeaderNow() {
  {
    const std::lock_guard lock(mutex_);
    if (traits_.headerAfterChange && !changed_) return {};
  }
  return encoding_.SequenceHeader();
}

HRESULT Transform::GetOutputAvailableType(DWORD id, DWORD place, IMFMediaType** type) {
  return Answer("GetOutputAvailableType", [&](std::string& details) {
    details = std::to_string(place);
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    if (place != 0) return MF_E_NO_MORE_TYPES;
    const Bytes header = HeaderNow();
    const std::lock_guard lock(mutex_);
    *type =
        (outputType_ ? CopyType(*outputType_.Get(), header) : MakeBareOutputType(kind_)).Detach();
    return S_OK;
  });
}

HRESULT Transform::AcceptOutputType(IMFMediaType& type, bool testOnly) {
  OutputFormat format;
  if (!ReadOutputType(type, kind_, traits_, format)) return MF_E_INVALIDMEDIATYPE;
  const std::lock_guard lock(mutex_);
  const bool sameSize = outputType_ && SameSize(format.size, format_.size);
  if (inputType_ && !sameSize) return MF_E_TRANSFORM_CANNOT_CHANGE_MEDIATYPE_WHILE_PROCESSING;
  if (testOnly) return S_OK;
  outputType_ = CopyType(type, {});
  format_ = format;
  properties_.SetDefaultRate(format.bitRate);
  if (std::exchange(renegotiating_, false) && Async()) Announce(1);
  return S_OK;
}

HRESULT Transform::SetOutputType(DWORD id, IMFMediaType* type, DWORD flags) {
  return Answer("SetOutputType", [&](std::string& details) {
    if (type) details = Describe(*type);
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    if (type) return AcceptOutputType(*type, (flags & MFT_SET_TYPE_TEST_ONLY) != 0);
    const std::lock_guard lock(mutex_);
    outputType_.Reset();
    inputType_.Reset();
    return S_OK;
  });
}

HRESULT Transform::AcceptInputType(IMFMediaType& type, bool testOnly) {
  CodecSize size;
  {
    const std::lock_guard lock(mutex_);
    if (!outputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
    if (!FitsInput(type, format_.size)) return MF_E_INVALIDMEDIATYPE;
    if (testOnly) return S_OK;
    inputType_ = CopyType(type, {});
    size = format_.size;
  }
  encoding_.SetSize(size);
  return S_OK;
}

HRESULT Transform::SetInputType(DWORD id, IMFMediaType* type, DWORD flags) {
  return Answer("SetInputType", [&](std::string& details) {
    if (type) details = Describe(*type);
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    if (type) return AcceptInputType(*type, (flags & MFT_SET_TYPE_TEST_ONLY) != 0);
    const std::lock_guard lock(mutex_);
    inputType_.Reset();
    return S_OK;
  });
}

HRESULT Transform::GetInputCurrentType(DWORD id, IMFMediaType** type) {
  return Answer("GetInputCurrentType", [&](std::string&) {
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    const std::lock_guard lock(mutex_);
    if (!inputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
    *type = CopyType(*inputType_.Get(), {}).Detach();
    return S_OK;
  });
}

HRESULT Transform::GetOutputCurrentType(DWORD id, IMFMediaType** type) {
  return Answer("GetOutputCurrentType", [&](std::string& details) {
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    const Bytes header = HeaderNow();
    details = "header=" + std::to_string(header.size());
    const std::lock_guard lock(mutex_);
    if (!outputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
    *type = CopyType(*outputType_.Get(), header).Detach();
    return S_OK;
  });
}

}  // namespace Veldrift::Transforms
