#include "ui/setup_window.h"

#include <system_error>
#include <thread>

#include "identity/atomic_text_file.h"
#include "platform/file.h"
#include "support/guarded.h"
#include "support/paths.h"
#include "ui/setup_layout.h"
#include "ui/status_view.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "setup_dialog"};

// Writes the file when what it says has changed.
//
// Threads: any; one thread of its own while it is open.
class StatusFile {
 public:
  // Never destroyed: a host that ends without a word leaves the thread behind.
  static StatusFile& Get() {
    static auto* file = new StatusFile;
    return *file;
  }

  void Open() {
    MutexLock lock(ownerMutex_);
    if (thread_.joinable()) return;
    {
      MutexLock wake(wakeMutex_);
      closing_ = false;
    }
    thread_ = std::thread([this] { RunGuarded(kLog, "status file", [this] { Loop(); }); });
  }

  void Close() {
    MutexLock lock(ownerMutex_);
    if (!thread_.joinable()) return;
    {
      MutexLock wake(wakeMutex_);
      closing_ = true;
      wake_.NotifyAll();
    }
    thread_.join();
  }

 private:
  void Loop() {
    const std::filesystem::path path =
        GetLocalDir() / PerHostFileName(DetectHostApplication(), "status", ".txt");
    PluginLog(kLog, kLogInfo, "no windows here: the setup is in %s", PathText(path).c_str());
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::string shown;
    do {
      const std::string view =
          StatusView(ReadInstallState(), ReadLiveState(SharedTransport::Get()), ListTrustedPeers());
      if (view != shown && ReplaceTextFile(path, view, {kLog, "status: "}, SystemClock())) {
        shown = view;
      }
    } while (Tick());
    std::filesystem::remove(path, ignored);
  }

  // False: it is to end.
  bool Tick() {
    const int64_t deadline = SteadyNanos() + kTickMs * kNanosPerMilli;
    MutexLock lock(wakeMutex_);
    while (!closing_ && SteadyNanos() < deadline) SystemClock().WaitUntil(wake_, lock, deadline);
    return !closing_;
  }

  Mutex ownerMutex_;  // one Open or Close at a time
  std::thread thread_ VD_GUARDED_BY(ownerMutex_);
  Mutex wakeMutex_;
  CondVar wake_;
  bool closing_ VD_GUARDED_BY(wakeMutex_) = false;
};

}  // namespace

void ShowSetupDialog() { StatusFile::Get().Open(); }

void CloseSetupDialog() { StatusFile::Get().Close(); }

}  // namespace Veldrift
