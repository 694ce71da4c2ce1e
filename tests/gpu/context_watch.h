// Notes what a device context is asked, without being one: entries of its class's table are ours for
// a scope. Threads: one; no other uses a context of that class meanwhile.
#pragma once

#include <string>

#include "encoder/mf/mf_headers.h"

namespace Veldrift {

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
  ContextWatch(const ContextWatch&) = delete;
  ContextWatch& operator=(const ContextWatch&) = delete;

  // In order: 'D' a dispatch, 'E' the end of a query, 'R' the answer that it is reached, 'F' a flush.
  const std::string& Deeds() const { return deeds_; }

 private:
  template <typename Function>
  class Entry {
   public:
    Entry(ID3D11DeviceContext* context, size_t place, Function ours)
        : entry_(&(*reinterpret_cast<Function**>(context))[place]), theirs_(*entry_) {
      Write(ours);
    }
    ~Entry() { Write(theirs_); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

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

  // The functions of a table have no room for it.
  static inline ContextWatch* watch_ = nullptr;
  std::string deeds_;
  Entry<End> end_;
  Entry<GetData> getData_;
  Entry<Dispatch> dispatch_;
  Entry<Flush> flush_;
};

}  // namespace Veldrift
