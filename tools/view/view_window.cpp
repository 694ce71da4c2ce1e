#include "tools/view/view_window.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <thread>

#include "support/clock.h"
#include "tools/cli/complaint.h"

namespace Veldrift {
namespace {

// Figures and notices are drawn anew so often, and the session's end is seen so soon.
constexpr int64_t kRefreshNs = 200 * kNanosPerMilli;
constexpr double kSmoothing = 0.1;
constexpr int64_t kToldNs = 6 * kNanosPerSecond;  // a sentence can be read so long
constexpr size_t kLongestLine = 60;
constexpr size_t kMostLines = 6;
constexpr size_t kMostCommands = 20;

template <typename... Args>
std::string Text(const char* format, Args... args) {
  char text[160];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}

// `text` in lines that end between words.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size() && lines.size() < kMostLines;) {
    size_t length = std::min(kLongestLine, text.size() - at);
    const size_t space = text.rfind(' ', at + length);
    if (at + length < text.size() && space != text.npos && space > at) length = space - at;
    lines.push_back(text.substr(at, length));
    at += length;
    while (at < text.size() && text[at] == ' ') ++at;
  }
  return lines;
}

std::vector<std::string> Help() {
  std::vector<std::string> lines;
  for (const KeyRow& row : WindowKeys()) lines.push_back(Text("%-12s %s", row.keys, row.what));
  return lines;
}

}  // namespace

ViewWindow::ViewWindow(LiveView& view, const MediaReceiver& receiver, PhoneLink& link,
                       SessionObserver& terminal)
    : view_(view), receiver_(receiver), link_(link), terminal_(terminal) {}

bool ViewWindow::Open(std::string& error) {
  std::string reason;
  if (!screen_.Open(reason)) {
    error = "--view: there is no window on this machine (" + reason +
            "); it needs a desktop, or DISPLAY set to one";
    return false;
  }
  wakeEvent_ = SDL_RegisterEvents(1);
  if (!view_.OpenSound(reason)) {
    Complain("veldrift-phone", 0, "the picture stays silent: no sound device (" + reason + ")");
  }
  return true;
}

void ViewWindow::OnPicture() {
  SDL_Event event{};
  event.type = wakeEvent_;
  if (event.type != 0) SDL_PushEvent(&event);
}

void ViewWindow::Tell(const std::string& sentence) {
  terminal_.Tell(sentence);
  const MutexLock lock(mutex_);
  told_ = sentence;
  toldNs_ = SteadyNanos();
}

void ViewWindow::Tick(int64_t nowNs, const std::string& waiting) {
  terminal_.Tick(nowNs, waiting);
  figures_.Add(SampleOf(receiver_.Counters(StreamType::Video).assembler), nowNs);
  std::vector<Command> commands;
  {
    const MutexLock lock(mutex_);
    now_ = {true,
            waiting,
            link_.Playing(),
            figures_.FramesPerSecond(),
            figures_.MegabitsPerSecond(),
            figures_.FramesLostPercent(),
            figures_.DatagramsMissingPercent(),
            link_.EncoderText()};
    commands.swap(commands_);
  }
  // What was typed without a connection isn't meant for the next one.
  if (!waiting.empty()) return;
  for (const Command& command : commands) link_.Send(command);
}

void ViewWindow::ShowDuring(const std::function<void()>& session) {
  std::thread thread([&] {
    session();
    sessionEnded_ = true;
    OnPicture();
  });
  while (!sessionEnded_) {
    WaitForEvents();
    ShowDue();
  }
  thread.join();
}

void ViewWindow::WaitForEvents() {
  const int64_t nowNs = SteadyNanos();
  int64_t waitNs = std::max<int64_t>(drawnNs_ + kRefreshNs - nowNs, 0);
  if (const auto dueNs = view_.NextDueNs()) waitNs = std::min(waitNs, *dueNs - nowNs);
  if (dirty_) waitNs = 0;
  SDL_Event event;
  // Rounded up: below a millisecond it wouldn't wait at all.
  const int waitMs = waitNs <= 0 ? 0 : int((waitNs + kNanosPerMilli - 1) / kNanosPerMilli);
  if (SDL_WaitEventTimeout(&event, waitMs) == 0) return;
  do OnEvent(event);
  while (SDL_PollEvent(&event) != 0);
}

void ViewWindow::OnEvent(const SDL_Event& event) {
  switch (event.type) {
    case SDL_QUIT:
      return End();
    case SDL_WINDOWEVENT:
      dirty_ = true;
      break;
    case SDL_TEXTINPUT:
      if (event.text.text[0] == '?') {
        showsHelp_ = !showsHelp_;
        dirty_ = true;
      }
      break;
    case SDL_KEYDOWN:
      if (const KeyRow* row = FindKey(event.key.keysym, event.key.repeat != 0)) OnKey(*row);
      break;
    default:
      break;
  }
}

void ViewWindow::OnKey(const KeyRow& row) {
  dirty_ = true;
  switch (row.act) {
    case WindowAct::Command: {
      const MutexLock lock(mutex_);
      if (commands_.size() < kMostCommands) commands_.push_back({row.opcode, {}});
      break;
    }
    case WindowAct::FullScreen:
      return screen_.SwitchFullScreen();
    case WindowAct::Figures:
      showsFigures_ = !showsFigures_;
      break;
    case WindowAct::Help:
      showsHelp_ = !showsHelp_;
      break;
    case WindowAct::End:
      return End();
  }
}

void ViewWindow::End() {
  view_.Close();
  const MutexLock lock(mutex_);
  // While it still connects, or waits for the code, only an interrupt is heard.
  if (!now_.connected) std::raise(SIGINT);
}

void ViewWindow::ShowDue() {
  const std::optional<DuePicture> due = view_.Next(SteadyNanos());
  if (due) {
    screen_.Put(*due->picture);
    width_ = due->picture->width;
    height_ = due->picture->height;
  }
  if (!due && !dirty_ && SteadyNanos() - drawnNs_ < kRefreshNs) return;
  screen_.Draw(Words());
  drawnNs_ = SteadyNanos();
  dirty_ = false;
  if (due) delayNs_ += (double(drawnNs_ - due->arrivedNs) - delayNs_) * kSmoothing;
}

PictureScreen::Words ViewWindow::Words() const {
  Now now;
  PictureScreen::Words words;
  {
    const MutexLock lock(mutex_);
    now = now_;
    if (SteadyNanos() - toldNs_ < kToldNs) words.told = Lines(told_);
  }
  if (showsFigures_) words.figures = Figures(now);
  if (showsHelp_) words.help = Help();
  words.notice = Notice(now);
  return words;
}

std::vector<std::string> ViewWindow::Figures(const Now& now) const {
  return {Text("%dx%d%s", width_, height_, now.playing ? "" : "  paused"),
          now.encoder.substr(0, kLongestLine),
          Text("%5.1f pictures a second", now.picturesPerSecond),
          Text("%5.1f Mbit/s", now.megabits),
          Text("%5.1f %% of the datagrams missing", now.datagramsMissing),
          Text("%5.1f %% of the pictures lost", now.picturesLost),
          Text("%5.0f ms from arrival to the screen", delayNs_ / 1e6),
          Text("%5.0f ms of them to keep in step", double(view_.WaitNs()) / 1e6)};
}

std::vector<std::string> ViewWindow::Notice(const Now& now) const {
  if (!now.connected) {
    return {"connecting", "(where a code is needed, the terminal asks for it)"};
  }
  if (!now.waiting.empty()) {
    std::vector<std::string> notice = Lines(now.waiting);
    notice.insert(notice.begin(), "no connection: trying again");
    return notice;
  }
  if (width_ == 0) return {"waiting for the first picture"};
  return {};
}

}  // namespace Veldrift
