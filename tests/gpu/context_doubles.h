// Doubles of some of a device context's functions, without a context of our own: entries of its
// class's table are theirs for a scope. Threads: one; no other uses a context of that class then.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_headers.h"

namespace Veldrift {

// A function of the table that is ours.
template <typename Function>
class TableEntry {
 public:
  TableEntry(ID3D11DeviceContext* context, size_t place, Function ours)
      : entry_(&(*reinterpret_cast<Function**>(context))[place]), theirs_(*entry_) {
    Write(ours);
  }
  ~TableEntry() { Write(theirs_); }
  TableEntry(const TableEntry&) = delete;
  TableEntry& operator=(const TableEntry&) = delete;

  Function Theirs() const { return theirs_; }

 private:
  void Write(Function function) {
    DWORD before = 0;
    VirtualProtect(entry_, sizeof *entry_, PAGE_READWRITE, &before);
    *entry_ = function;
    VirtualProtect(entry_, sizeof *entry_, before, &before);
  }

  Function* const entry_;
  const Function theirs_;
};

// Notes what the context is asked.
class ContextWatch {
 public:
  explicit ContextWatch(ID3D11DeviceContext* context)
      : end_(context, 28, &NoteEnd),
        getData_(context, 29, &NoteGetData),
        dispatch_(context, 41, &NoteDispatch),
        flush_(context, 111, &NoteFlush) {
    watch_ = this;
  }
  ~ContextWatch() { watch_ = nullptr; }

  // In order: 'D' a dispatch, 'E' the end of a query, 'R' the answer that it is reached, 'F' a
  // flush.
  const std::string& Deeds() const { return deeds_; }

 private:
  using Context = ID3D11DeviceContext;
  using End = void(WINAPI*)(Context*, ID3D11Asynchronous*);
  using GetData = HRESULT(WINAPI*)(Context*, ID3D11Asynchronous*, void*, UINT, UINT);
  using Dispatch = void(WINAPI*)(Context*, UINT, UINT, UINT);
  using Flush = void(WINAPI*)(Context*);

  static void WINAPI NoteEnd(Context* context, ID3D11Asynchronous* query) {
    watch_->deeds_ += 'E';
    watch_->end_.Theirs()(context, query);
  }
  static HRESULT WINAPI NoteGetData(Context* context, ID3D11Asynchronous* query, void* data,
                                    UINT size, UINT flags) {
    const HRESULT result = watch_->getData_.Theirs()(context, query, data, size, flags);
    if (result == S_OK) watch_->deeds_ += 'R';
    return result;
  }
  static void WINAPI NoteDispatch(Context* context, UINT x, UINT y, UINT z) {
    watch_->deeds_ += 'D';
    watch_->dispatch_.Theirs()(context, x, y, z);
  }
  static void WINAPI NoteFlush(Context* context) {
    watch_->deeds_ += 'F';
    watch_->flush_.Theirs()(context);
  }

  // A table's functions have no room for it.
  static inline ContextWatch* watch_ = nullptr;
  std::string deeds_;
  TableEntry<End> end_;
  TableEntry<GetData> getData_;
  TableEntry<Dispatch> dispatch_;
  TableEntry<Flush> flush_;
};

// Maps textures with rows wider than the driver's, as most graphics adapters have them and this one
// hasn't. One texture at a time.
class WideRows {
 public:
  explicit WideRows(ID3D11DeviceContext* context)
      : map_(context, 14, &MapWide), unmap_(context, 15, &UnmapWide) {
    wide_ = this;
  }
  ~WideRows() { wide_ = nullptr; }

  int Mapped() const { return count_; }

 private:
  static constexpr UINT kWider = 52;
  using Context = ID3D11DeviceContext;
  using Map = HRESULT(WINAPI*)(Context*, ID3D11Resource*, UINT, D3D11_MAP, UINT,
                               D3D11_MAPPED_SUBRESOURCE*);
  using Unmap = void(WINAPI*)(Context*, ID3D11Resource*, UINT);

  static HRESULT WINAPI MapWide(Context* context, ID3D11Resource* resource, UINT part,
                                D3D11_MAP type, UINT flags, D3D11_MAPPED_SUBRESOURCE* mapped) {
    const HRESULT result =
        wide_->map_.Theirs()(context, resource, part, type, flags, &wide_->narrow_);
    if (SUCCEEDED(result)) wide_->Widen(resource, type, *mapped);
    return result;
  }
  static void WINAPI UnmapWide(Context* context, ID3D11Resource* resource, UINT part) {
    if (wide_->writes_) wide_->CopyRows(false);
    wide_->unmap_.Theirs()(context, resource, part);
  }

  void Widen(ID3D11Resource* resource, D3D11_MAP type, D3D11_MAPPED_SUBRESOURCE& mapped) {
    ComPtr<ID3D11Texture2D> texture;
    resource->QueryInterface(IID_PPV_ARGS(&texture));
    D3D11_TEXTURE2D_DESC description{};
    texture->GetDesc(&description);
    rows_ = description.Height;
    writes_ = type != D3D11_MAP_READ;
    bytes_.assign(size_t{narrow_.RowPitch + kWider} * rows_, 0xEE);
    if (!writes_) CopyRows(true);
    mapped = {bytes_.data(), narrow_.RowPitch + kWider, static_cast<UINT>(bytes_.size())};
    ++count_;
  }
  void CopyRows(bool widen) {
    auto* theirs = static_cast<uint8_t*>(narrow_.pData);
    uint8_t* ours = bytes_.data();
    for (UINT row = 0; row < rows_; ++row) {
      std::memcpy(widen ? ours : theirs, widen ? theirs : ours, narrow_.RowPitch);
      theirs += narrow_.RowPitch;
      ours += narrow_.RowPitch + kWider;
    }
  }

  static inline WideRows* wide_ = nullptr;
  int count_ = 0;
  bool writes_ = false;
  UINT rows_ = 0;
  D3D11_MAPPED_SUBRESOURCE narrow_{};
  std::vector<uint8_t> bytes_;
  TableEntry<Map> map_;
  TableEntry<Unmap> unmap_;
};

}  // namespace Veldrift
