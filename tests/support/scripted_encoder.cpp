#include "tests/support/scripted_encoder.h"

#include <algorithm>
#include <utility>

namespace Veldrift {

void EncoderScript::Change(const std::function<void(Behaviour&)>& change) {
  MutexLock lock(mutex_);
  change(behaviour_);
}

EncoderScript::Behaviour EncoderScript::Now() const {
  MutexLock lock(mutex_);
  return behaviour_;
}

void EncoderScript::Record(int encoder, const std::string& call) {
  MutexLock lock(mutex_);
  calls_.push_back(std::to_string(encoder) + "." + call);
}

std::vector<std::string> EncoderScript::Calls() const {
  MutexLock lock(mutex_);
  return calls_;
}

size_t EncoderScript::Count(const std::string& call) const {
  MutexLock lock(mutex_);
  return static_cast<size_t>(std::count(calls_.begin(), calls_.end(), call));
}

int EncoderScript::NextNumber() {
  MutexLock lock(mutex_);
  return encoders_++;
}

ScriptedEncoder::ScriptedEncoder(std::shared_ptr<EncoderScript> script, EncoderSettings settings)
    : script_(std::move(script)),
      number_(script_->NextNumber()),
      settings_(settings),
      configured_(settings.width > 0) {}

EncoderSettings ScriptedEncoder::Settings() {
  MutexLock lock(mutex_);
  return settings_;
}

bool ScriptedEncoder::Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) {
  Record("Configure " + std::to_string(width) + "x" + std::to_string(height) + " " +
         std::to_string(bitrate) + " " + std::to_string(fps));
  const bool fails = script_->Now().failConfigure;
  MutexLock lock(mutex_);
  configured_ = !fails;
  settings_.width = fails ? 0 : static_cast<int32_t>(width);
  settings_.height = fails ? 0 : static_cast<int32_t>(height);
  settings_.fps = static_cast<int32_t>(fps);
  settings_.bitrate = bitrate;
  keyRequested_ = true;
  keyEmitted_ = false;
  return configured_;
}

void ScriptedEncoder::Shutdown() {
  Record("Shutdown");
  if (script_->Now().emitOnShutdown) EmitLate(true, 0);
  MutexLock lock(mutex_);
  configured_ = false;
}

bool ScriptedEncoder::Ready() {
  MutexLock lock(mutex_);
  return configured_;
}

std::string ScriptedEncoder::GetDescription() {
  return Ready() ? "scripted " + std::to_string(number_) : std::string();
}

void ScriptedEncoder::EncodeFrame(const uint8_t*, uint32_t width, uint32_t height, int32_t,
                                  int64_t timestampMicros) {
  Record("EncodeFrame " + std::to_string(width) + "x" + std::to_string(height));
  if (script_->Now().withholdOutput) return;
  bool keyFrame = false;
  {
    MutexLock lock(mutex_);
    if (!configured_) return;
    keyFrame = std::exchange(keyRequested_, false) || settings_.gopSize == 1;
    keyEmitted_ = keyEmitted_ || keyFrame;
  }
  EmitLate(keyFrame, static_cast<uint64_t>(timestampMicros));
}

void ScriptedEncoder::EmitLate(bool keyFrame, uint64_t timestamp) {
  EncodedFrameCallback callback;
  int32_t codec = kCodecHevc;
  {
    MutexLock lock(mutex_);
    callback = callback_;
    codec = settings_.codec;
  }
  if (!callback) return;
  const uint8_t header = codec == kCodecH264 ? (keyFrame ? 0x65 : 0x41) : (keyFrame ? 0x26 : 0x02);
  std::vector<uint8_t> unit(std::max<size_t>(script_->Now().frameBytes, 6), 0x80);
  const uint8_t start[] = {0, 0, 0, 1, header};
  std::copy(std::begin(start), std::end(start), unit.begin());
  unit.back() = static_cast<uint8_t>(number_);
  callback(unit.data(), unit.size(), keyFrame, timestamp);
}

void ScriptedEncoder::RequestIdr() {
  Record("RequestIdr");
  MutexLock lock(mutex_);
  keyRequested_ = true;
}

void ScriptedEncoder::SetBitrate(uint32_t bitsPerSecond) {
  Record("SetBitrate " + std::to_string(bitsPerSecond));
  MutexLock lock(mutex_);
  settings_.bitrate = bitsPerSecond;
}

void ScriptedEncoder::SetPeakBitrate(uint32_t bitsPerSecond) {
  Record("SetPeakBitrate " + std::to_string(bitsPerSecond));
  MutexLock lock(mutex_);
  settings_.peakBitrate = bitsPerSecond;
}

void ScriptedEncoder::SetGopSize(int32_t frames) {
  Record("SetGopSize " + std::to_string(frames));
  MutexLock lock(mutex_);
  settings_.gopSize = std::max(frames, 1);
}

void ScriptedEncoder::SetCodec(int32_t codec) {
  Record("SetCodec " + std::to_string(codec));
  MutexLock lock(mutex_);
  settings_.codec = codec;
}

void ScriptedEncoder::SetRateControl(int32_t mode, float quality) {
  Record("SetRateControl " + std::to_string(mode));
  MutexLock lock(mutex_);
  settings_.rateControl = mode;
  settings_.quality = quality;
}

void ScriptedEncoder::TriggerEmergencyCompression(int32_t frames) {
  Record("TriggerEmergencyCompression " + std::to_string(frames));
}

void ScriptedEncoder::SetFrameByteCap(uint32_t bytes) {
  Record("SetFrameByteCap " + std::to_string(bytes));
  MutexLock lock(mutex_);
  settings_.frameByteCap = bytes;
}

void ScriptedEncoder::SetOutputCallback(EncodedFrameCallback callback) {
  MutexLock lock(mutex_);
  std::swap(callback_, callback);
}

std::unique_ptr<IHardwareEncoder> ScriptedEncoder::Clone(const EncoderSettings& settings) {
  Record("Clone " + std::to_string(settings.width) + "x" + std::to_string(settings.height));
  const EncoderScript::Behaviour now = script_->Now();
  if (now.insideClone) now.insideClone();
  if (now.failClone) return nullptr;
  return std::make_unique<ScriptedEncoder>(script_, settings);
}

bool ScriptedEncoder::HasEmittedKeyframe() {
  MutexLock lock(mutex_);
  return keyEmitted_;
}

void ScriptedEncoder::SetQualityMode(float) { Record("SetQualityMode"); }

void ScriptedEncoder::SetHrdBufferBits(int64_t, int64_t) { Record("SetHrdBufferBits"); }

}  // namespace Veldrift
