#include "encoder/mf/conversion_shader.h"

#include <string>

#include "encoder/bgra_to_nv12_shader.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

// What the compiler says, which may end with a zero of its own.
std::string TextOf(ID3DBlob* message) {
  if (message == nullptr) return "no msg";
  const std::string text(static_cast<const char*>(message->GetBufferPointer()),
                         message->GetBufferSize());
  return text.substr(0, text.find('\0'));
}

UINT Groups(int32_t pixels) {
  return static_cast<UINT>((pixels + kShaderGroupPixels - 1) / kShaderGroupPixels);
}

}  // namespace

bool ConversionShader::Prepare() {
  if (Ready()) return true;
  if (device_.Device() == nullptr) return false;
  const ComPtr<ID3DBlob> code = Compile();
  if (code == nullptr) return false;
  const HRESULT result = device_.Device()->CreateComputeShader(
      code->GetBufferPointer(), code->GetBufferSize(), nullptr, &shader_);
  if (SUCCEEDED(result)) return true;
  shader_.Reset();
  PluginLog(kCategory, kLogError, "GPU NV12: CreateComputeShader failed 0x%08lx",
            static_cast<unsigned long>(result));
  return false;
}

ComPtr<ID3DBlob> ConversionShader::Compile() const {
  ComPtr<ID3DBlob> code;
  ComPtr<ID3DBlob> message;
  HRESULT result = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  if (libraries_.compiler) {
    result = libraries_.compiler->compile(kBgraToNv12Shader.data(), kBgraToNv12Shader.size(),
                                          "BgraToNv12.hlsl", nullptr, nullptr, "main", "cs_5_0", 0,
                                          0, &code, &message);
  }
  if (SUCCEEDED(result) && code != nullptr) return code;
  PluginLog(kCategory, kLogError, "GPU NV12: D3DCompile failed 0x%08lx (%s)",
            static_cast<unsigned long>(result), TextOf(message.Get()).c_str());
  return nullptr;
}

void ConversionShader::Run(ID3D11ShaderResourceView* picture, ID3D11UnorderedAccessView* luma,
                           ID3D11UnorderedAccessView* chroma, int32_t width, int32_t height) const {
  ID3D11DeviceContext* context = device_.Context();
  ID3D11UnorderedAccessView* const planes[] = {luma, chroma};
  context->CSSetShader(shader_.Get(), nullptr, 0);
  context->CSSetShaderResources(0, 1, &picture);
  context->CSSetUnorderedAccessViews(0, 2, planes, nullptr);
  context->Dispatch(Groups(width), Groups(height), 1);
  // What stays bound can't be written or read elsewhere.
  ID3D11ShaderResourceView* const noPicture = nullptr;
  ID3D11UnorderedAccessView* const noPlanes[] = {nullptr, nullptr};
  context->CSSetShaderResources(0, 1, &noPicture);
  context->CSSetUnorderedAccessViews(0, 2, noPlanes, nullptr);
}

}  // namespace Veldrift
