#include "tests/transforms/module/picture_reader.h"

#include <d3d11.h>

#include "tests/transforms/common/com_ptr.h"

namespace Veldrift::Transforms {
namespace {

template <class T>
ComPtr<T> Query(IUnknown& object, REFIID iid) {
  ComPtr<T> found;
  if (FAILED(object.QueryInterface(iid, found.PutVoid()))) return {};
  return found;
}

void CopyRows(Bytes& to, const BYTE* from, ptrdiff_t pitch, int width, int rows) {
  to.resize(static_cast<size_t>(width) * static_cast<size_t>(rows));
  for (int row = 0; row < rows; ++row) {
    const BYTE* line = from + row * pitch;
    std::copy(line, line + width, to.begin() + ptrdiff_t{row} * width);
  }
}

// The chroma of a texture lies behind all of its rows, which may be more than the picture's.
bool ReadRowsOfTexture(IMFMediaBuffer& buffer, int& rows) {
  const auto dxgi = Query<IMFDXGIBuffer>(buffer, IID_IMFDXGIBuffer);
  if (!dxgi) return false;
  ComPtr<ID3D11Texture2D> texture;
  if (FAILED(dxgi->GetResource(IID_ID3D11Texture2D, texture.PutVoid()))) return false;
  D3D11_TEXTURE2D_DESC description = {};
  texture->GetDesc(&description);
  rows = static_cast<int>(description.Height);
  return true;
}

HRESULT ReadPitched(IMFMediaBuffer& buffer, IMF2DBuffer& pitched, int width, int height,
                    Picture& picture) {
  int rows = height;
  ReadRowsOfTexture(buffer, rows);
  BYTE* first = nullptr;
  LONG pitch = 0;
  if (const HRESULT result = pitched.Lock2D(&first, &pitch); FAILED(result)) return result;
  const bool fits = pitch >= width && rows >= height;
  if (fits) {
    CopyRows(picture.luma, first, pitch, width, height);
    CopyRows(picture.chroma, first + ptrdiff_t{pitch} * rows, pitch, width, height / 2);
  }
  pitched.Unlock2D();
  return fits ? S_OK : E_INVALIDARG;
}

HRESULT ReadPacked(IMFMediaBuffer& buffer, int width, int height, Picture& picture) {
  BYTE* bytes = nullptr;
  DWORD length = 0;
  if (const HRESULT result = buffer.Lock(&bytes, nullptr, &length); FAILED(result)) return result;
  const DWORD luma = static_cast<DWORD>(width) * static_cast<DWORD>(height);
  const bool fits = length >= luma + luma / 2;
  if (fits) {
    CopyRows(picture.luma, bytes, width, width, height);
    CopyRows(picture.chroma, bytes + luma, width, width, height / 2);
  }
  buffer.Unlock();
  return fits ? S_OK : E_INVALIDARG;
}

}  // namespace

HRESULT ReadPicture(IMFSample& sample, int width, int height, Picture& picture) {
  ComPtr<IMFMediaBuffer> buffer;
  if (const HRESULT result = sample.ConvertToContiguousBuffer(buffer.Put()); FAILED(result)) {
    return result;
  }
  if (const auto pitched = Query<IMF2DBuffer>(*buffer.Get(), IID_IMF2DBuffer)) {
    return ReadPitched(*buffer.Get(), *pitched.Get(), width, height, picture);
  }
  return ReadPacked(*buffer.Get(), width, height, picture);
}

bool IsTexture(IMFSample& sample) {
  ComPtr<IMFMediaBuffer> buffer;
  return SUCCEEDED(sample.GetBufferByIndex(0, buffer.Put())) &&
         Query<IMFDXGIBuffer>(*buffer.Get(), IID_IMFDXGIBuffer);
}

}  // namespace Veldrift::Transforms
