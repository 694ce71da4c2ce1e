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
    : EncoderDouble(settings), script_(std::move(script)), number_(script_->NextNumber()) {}

bool ScriptedEncoder::Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) {
  if (!script_->Now().failConfigure) {
    return EncoderDouble::Configure(width, height, bitrate, fps);
  }
  EncoderDouble::Configure(0, 0, bitrate, fps);
  return false;
}

void ScriptedEncoder::Shutdown() {
  const EncoderScript::Behaviour now = script_->Now();
  if (now.emitOnShutdown) EmitLate(true, 0);
  EncoderDouble::Shutdown();
  if (now.insideShutdown) now.insideShutdown();
}

std::string ScriptedEncoder::GetDescription() {
  return Ready() ? "scripted " + std::to_string(number_) : std::string();
}

void ScriptedEncoder::EncodeFrame(const uint8_t*, uint32_t width, uint32_t height, int32_t,
                                  int64_t timestampMicros) {
  OnCall("EncodeFrame " + std::to_string(width) + "x" + std::to_string(height));
  if (script_->Now().withholdOutput || !Ready()) return;
  const bool keyFrame = keyRequested_.exchange(false) || GetGopSize() == 1;
  EmitLate(keyFrame, static_cast<uint64_t>(timestampMicros));
}

void ScriptedEncoder::EmitLate(bool keyFrame, uint64_t timestamp) {
  const uint8_t header =
      GetCodec() == kCodecH264 ? (keyFrame ? 0x65 : 0x41) : (keyFrame ? 0x26 : 0x02);
  std::vector<uint8_t> unit(std::max<size_t>(script_->Now().frameBytes, 6), 0x80);
  const uint8_t start[] = {0, 0, 0, 1, header};
  std::copy(std::begin(start), std::end(start), unit.begin());
  unit.back() = static_cast<uint8_t>(number_);
  Emit(unit.data(), unit.size(), timestamp, keyFrame);
}

std::unique_ptr<IHardwareEncoder> ScriptedEncoder::Clone(const EncoderSettings& settings) {
  OnCall("Clone " + std::to_string(settings.width) + "x" + std::to_string(settings.height));
  const EncoderScript::Behaviour now = script_->Now();
  if (now.insideClone) now.insideClone();
  if (now.failClone) return nullptr;
  return std::make_unique<ScriptedEncoder>(script_, settings);
}

}  // namespace Veldrift
