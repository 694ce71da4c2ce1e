// The Direct3D 11 device that converts pictures and that a transform may share.
#pragma once

#include <string_view>

#include "encoder/mf/com_scope.h"
#include "encoder/mf/gpu_fence.h"
#include "encoder/mf/mf_libraries.h"

namespace Veldrift {

// Threads: one at a time, under its owner's lock; the device itself is protected, since the
// transform uses it on threads of its own.
class D3dDevice {
 public:
  // `libraries` outlives the device.
  explicit D3dDevice(const MfLibraries& libraries) : libraries_(libraries) {}

  // Makes the device on the adapter that suits the engine (adapter_choice.h), else on the system's
  // own choice, and a manager that shares it. What can't be made is told in the log and stays
  // absent: a software transform needs none of it. `engineId` as NormaliseEngineId leaves it.
  void Open(std::string_view engineId);
  // Gives everything back, the device last. What was made with it has to be gone by then.
  void Close();

  // Null if absent; device and context are there or absent together.
  ID3D11Device* Device() const { return device_.Get(); }
  ID3D11DeviceContext* Context() const { return context_.Get(); }
  IMFDXGIDeviceManager* Manager() const { return manager_.Get(); }
  bool Complete() const {
    return Device() != nullptr && Context() != nullptr && Manager() != nullptr;
  }

  // The wait behind conversions; whoever needs it creates and releases its query.
  GpuFence& Fence() { return fence_; }
  // Waits until the adapter has nothing left to do; returns at once without a device.
  void WaitIdle() const;

 private:
  HRESULT CreateOn(IDXGIAdapter1* adapter);
  bool CreateDevice(std::string_view engineId);
  void Protect();
  void Share();

  const MfLibraries& libraries_;
  // The last is destroyed first.
  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
  ComPtr<IMFDXGIDeviceManager> manager_;
  GpuFence fence_;
};

}  // namespace Veldrift
