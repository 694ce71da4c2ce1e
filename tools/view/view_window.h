// The window that a session's pictures are watched in: shows them when they are due, hands keys on
// to the host, and tells how the stream is and that the connection is missing.
//
// Threads: Open, ShowDuring and the destructor belong to the main thread; Tell and Tick come from
// the session's; OnPicture from any.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tools/receiver/live_figures.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/session.h"
#include "tools/view/live_view.h"
#include "tools/view/picture_screen.h"
#include "tools/view/window_keys.h"

namespace Veldrift {

class ViewWindow : public SessionObserver {
 public:
  // `terminal` is told everything too. All outlive this.
  ViewWindow(LiveView& view, const MediaReceiver& receiver, PhoneLink& link,
             SessionObserver& terminal);

  // False: `error` is a sentence without its full stop.
  bool Open(std::string& error);

  // Runs `session` on a thread of its own and the window on this one, until `session` returns.
  void ShowDuring(const std::function<void()>& session);

  // One more waits in the view.
  void OnPicture();

  void Tell(const std::string& sentence) override;
  void Tick(int64_t nowNs, const std::string& waiting) override;
  void Woke(int64_t nowNs) override {
    figures_.BeginAnew(nowNs);
    terminal_.Woke(nowNs);
  }

 private:
  // What the session's thread knows, for the window.
  struct Now {
    bool connected = false;
    std::string waiting;  // why there is no connection
    bool playing = true;
    double picturesPerSecond = 0;
    double megabits = 0;
    double picturesLost = 0;  // per cent
    double datagramsMissing = 0;
    std::string encoder;  // what it says of itself
  };

  void WaitForEvents();
  void OnEvent(const SDL_Event& event);
  void OnKey(const KeyRow& row);
  void End();
  void ShowDue();
  PictureScreen::Words Words() const;
  std::vector<std::string> Figures(const Now& now) const;
  std::vector<std::string> Notice(const Now& now) const;

  LiveView& view_;
  const MediaReceiver& receiver_;
  PhoneLink& link_;
  SessionObserver& terminal_;
  PictureScreen screen_;
  std::atomic<uint32_t> wakeEvent_{0};
  std::atomic<bool> sessionEnded_{false};

  mutable Mutex mutex_;
  Now now_ VD_GUARDED_BY(mutex_);
  std::vector<Command> commands_ VD_GUARDED_BY(mutex_);  // wait for the session's thread
  std::string told_ VD_GUARDED_BY(mutex_);
  int64_t toldNs_ VD_GUARDED_BY(mutex_) = 0;

  LiveFigures figures_;  // the session's thread's

  // The main thread's.
  bool showsFigures_ = false;
  bool showsHelp_ = false;
  bool dirty_ = true;
  int64_t drawnNs_ = 0;
  int width_ = 0;
  int height_ = 0;
  double delayNs_ = 0;  // smoothed, from a picture's first datagram to the screen
};

}  // namespace Veldrift
