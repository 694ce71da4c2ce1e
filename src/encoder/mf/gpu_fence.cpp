#include "encoder/mf/gpu_fence.h"

#include "encoder/resident_status.h"

namespace Veldrift {
namespace {

constexpr uint32_t kConversionPolls = 1'000'000;
constexpr uint32_t kIdlePolls = 5'000'000;
constexpr uint32_t kYieldMask = 1023;

ComPtr<ID3D11Query> MakeEventQuery(ID3D11Device* device) {
  const D3D11_QUERY_DESC event{.Query = D3D11_QUERY_EVENT, .MiscFlags = 0};
  ComPtr<ID3D11Query> query;
  if (FAILED(device->CreateQuery(&event, &query))) return nullptr;
  return query;
}

}  // namespace

FencePoll PollFence(uint32_t limit, const std::function<HRESULT(BOOL& reached)>& ask) {
  for (uint32_t polls = 0; polls < limit; ++polls) {
    BOOL reached = FALSE;
    const HRESULT result = ask(reached);
    if (FAILED(result)) return FencePoll::Failed;
    if (result == S_OK && reached != FALSE) return FencePoll::Done;
    if ((polls & kYieldMask) == kYieldMask) SwitchToThread();
  }
  return FencePoll::OutOfPolls;
}

void GpuFence::Create(ID3D11Device* device) { query_ = MakeEventQuery(device); }

void GpuFence::WaitForConversion(ID3D11DeviceContext* context) const {
  Wait(context, FenceForbidden() ? nullptr : query_.Get(), kConversionPolls);
}

void GpuFence::WaitIdle(ID3D11Device* device, ID3D11DeviceContext* context) const {
  const ComPtr<ID3D11Query> query = query_ == nullptr ? MakeEventQuery(device) : query_;
  Wait(context, query.Get(), kIdlePolls);
}

void GpuFence::Wait(ID3D11DeviceContext* context, ID3D11Query* query, uint32_t limit) {
  if (query == nullptr) {
    context->Flush();
    return;
  }
  context->End(query);
  const FencePoll poll = PollFence(
      limit, [&](BOOL& reached) { return context->GetData(query, &reached, sizeof reached, 0); });
  if (poll == FencePoll::Failed) context->Flush();
}

}  // namespace Veldrift
