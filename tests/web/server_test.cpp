// The small server, asked by those who mean well and by those who don't, while others watch. Bytes
// over real connections; the port is whichever is free.
#include "tools/phone/web_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <thread>
#include <vector>

#include "tests/support/eventually.h"
#include "tools/phone/web_page.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {
namespace {

const std::string kSteer(32, 'a');
const std::string kLook(32, 'b');

class Client {
 public:
  explicit Client(uint16_t port)
      : socket_(ConnectTcp({*ParseAddress("127.0.0.1"), port}, 0, 5 * kNanosPerSecond)) {}

  bool Connected() const { return socket_ != nullptr; }

  // False: the other side took no more for a second, or has gone.
  bool Send(std::string_view text) {
    std::span<const std::byte> rest = std::as_bytes(std::span(text));
    const int64_t deadline = SteadyNanos() + kNanosPerSecond;
    while (!rest.empty() && socket_) {
      size_t sent = 0;
      const StreamSocket::SendResult result = socket_->TrySend(rest, sent);
      if (result == StreamSocket::SendResult::Failed || SteadyNanos() > deadline) return false;
      rest = rest.subspan(sent);
      if (sent == 0) SystemClock().SleepFor(kNanosPerMilli);
    }
    return socket_ != nullptr;
  }

  // Until `text` has come, or the end.
  bool AwaitText(std::string_view text) {
    while (said_.find(text) == said_.npos) {
      if (!Receive()) return false;
    }
    return true;
  }
  bool AwaitBytes(size_t count) {
    while (said_.size() < count) {
      if (!Receive()) return false;
    }
    return true;
  }
  bool AwaitEnd() {
    while (Receive()) said_.clear();
    return ended_;
  }
  // The other side has ended it, and said nothing.
  bool Ended() {
    if (!ended_ && Veldrift::AwaitBytes(*socket_, 0)) Receive();
    return ended_;
  }
  // Doesn't wait.
  bool Answered() { return socket_ && Veldrift::AwaitBytes(*socket_, 0); }
  // The status of the answer; 0: there was none.
  int Status() {
    if (!AwaitText("\r\n\r\n")) return 0;
    return said_.starts_with("HTTP/1.1 ") ? std::stoi(said_.substr(9, 3)) : -1;
  }
  const std::string& Said() const { return said_; }
  void Forget() { said_.clear(); }

 private:
  bool Receive() {
    if (!socket_ || !Veldrift::AwaitBytes(*socket_, kPatienceNanos)) return false;
    std::vector<std::byte> piece(1 << 16);
    const std::ptrdiff_t count = socket_->Receive(piece);
    ended_ = count <= 0;
    if (ended_) return false;
    said_.append(reinterpret_cast<const char*>(piece.data()), size_t(count));
    return true;
  }

  std::unique_ptr<StreamSocket> socket_;
  std::string said_;
  bool ended_ = false;
};

// How many of them have an answer.
size_t Answered(std::deque<Client>& clients) {
  return size_t(std::ranges::count_if(clients, [](Client& client) { return client.Answered(); }));
}

// Somebody who watches all the while.
class Watcher {
 public:
  Watcher(uint16_t port, const std::string& request) : client_(port) {
    client_.Send(request);
    EXPECT_EQ(client_.Status(), 200);
    thread_ = std::thread([this] {
      while (!stopped_ && client_.AwaitBytes(client_.Said().size() + 1)) {
        bytes_ += client_.Said().size();
        client_.Forget();
      }
      ended_ = !stopped_;
    });
  }
  ~Watcher() {
    stopped_ = true;
    thread_.join();
  }

  // From now on.
  bool Gets(uint64_t bytes) {
    const uint64_t from = bytes_;
    return Eventually([&] { return ended_ || bytes_ - from >= bytes; }) && !ended_;
  }

 private:
  Client client_;
  std::atomic<uint64_t> bytes_{0};
  std::atomic<bool> stopped_{false};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

class Server : public testing::Test {
 protected:
  Server() {
    WebEpoch epoch;
    epoch.init = epoch.silentInit = {std::byte('<')};
    epoch.codecs = "avc1.640028,mp4a.40.2";
    epoch.silentCodecs = "avc1.640028";
    broadcast_.Begin(std::move(epoch));
    std::string sentence;
    EXPECT_TRUE(server_.Start({*ParseAddress("127.0.0.1"), 0}, {kSteer, kLook}, sentence))
        << sentence;
  }
  ~Server() override { StopSource(); }

  std::string Head(std::string_view line, std::string_view headers = "") const {
    return std::string(line) + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server_.Port()) +
           "\r\n" + std::string(headers) + "\r\n";
  }
  std::string Live() const { return Head("GET /live", "X-Key: " + kLook + "\r\n"); }
  std::string Post(const std::string& body, const std::string& key = kSteer) const {
    return Head("POST /command",
                "X-Key: " + key + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n") +
           body;
  }
  int Ask(std::string_view request) {
    Client client(server_.Port());
    return client.Send(request) ? client.Status() : 0;
  }

  // Key frames of 100 KB, a thousand a second.
  void StartSource() {
    source_ = std::thread([this] {
      while (!stopped_) {
        broadcast_.Push({ByteVector(100'000, std::byte('K')), true, true, 0});
        ++pushed_;
        SystemClock().SleepFor(kNanosPerMilli);
      }
    });
  }
  void StopSource() {
    stopped_ = true;
    if (source_.joinable()) source_.join();
  }

  WebBroadcast broadcast_{SystemClock()};
  WebNews news_{SystemClock()};
  std::vector<uint8_t> commands_;
  Mutex mutex_;
  WebServer server_{{broadcast_, news_, [this](const Command& command) {
                       const MutexLock lock(mutex_);
                       commands_.push_back(command.opcode);
                       return 204;
                     }}};
  std::thread source_;
  std::atomic<bool> stopped_{false};
  std::atomic<int> pushed_{0};
};

TEST_F(Server, AnswersEachAsItMayBe) {
  struct Row {
    std::string request;
    int status;
  };
  const std::string key = "X-Key: " + kSteer + "\r\n";
  const Row rows[] = {
      {Head("GET /"), 200},
      {Head("GET /page.js"), 200},
      {Head("GET /page.css"), 200},
      {Head("GET /player.js"), 200},
      {Head("GET /page.js?x=1"), 200},
      {Head("GET /../../etc/passwd", key), 404},
      {Head("GET /%2e%2e/%2e%2e/etc/passwd", key), 404},
      {Head("GET /..%2f..%2fetc/passwd", key), 404},
      {Head("GET //etc/passwd", key), 404},
      {Head("GET /page.js%00/../../etc/passwd", key), 200},  // its text ends there
      {Head("GET /live"), 403},
      {Head("GET /live", "X-Key: " + kSteer.substr(1) + "c\r\n"), 403},
      {Head("GET /live", key + "Origin: http://example.org\r\n"), 403},
      {Head("GET /live?key=" + kSteer.substr(1)), 403},
      {Head("GET /events"), 403},
      {Head("OPTIONS /command", "Origin: http://example.org\r\n"), 403},
      {Head("OPTIONS /command"), 405},
      {Head("PUT /command", key), 405},
      {Post("play"), 204},
      {Post("play", kLook), 403},
      {Post("play", ""), 403},
      {Post("codec=av1"), 400},
      {Post(""), 400},
      {"GET / HTTP/1.1\r\nHost: example.org:" + std::to_string(server_.Port()) + "\r\n\r\n", 403},
      {"GET / HTTP/1.0\r\n\r\n", 403},
  };
  for (const Row& row : rows) EXPECT_EQ(Ask(row.request), row.status) << row.request;
  EXPECT_EQ(commands_, std::vector<uint8_t>{0x20});
  EXPECT_EQ(server_.Refused(), 5U);
}

TEST_F(Server, ThePageRunsNothingOfOthersAndIsShownByNobodyElse) {
  Client client(server_.Port());
  client.Send(Head("GET /"));
  ASSERT_TRUE(client.AwaitText("</html>"));
  for (const char* header :
       {"default-src 'none'", "script-src 'self'", "frame-ancestors 'none'", "no-referrer",
        "Cross-Origin-Resource-Policy: same-origin", "Cache-Control: no-store", "nosniff"}) {
    EXPECT_NE(client.Said().find(header), std::string::npos) << header;
  }
  EXPECT_EQ(client.Said().find("Access-Control"), std::string::npos);
  EXPECT_EQ(client.Said().find(kLook), std::string::npos);
  for (const char* path : {"/page.js", "/player.js", "/page.css"}) {
    EXPECT_NE(FindWebPage(path), nullptr) << path;
  }
  EXPECT_EQ(FindWebPage("/")->text.find("<script>"), std::string_view::npos);
}

TEST_F(Server, NewsBeginWithWhatTheKeyIsGoodFor) {
  news_.Publish("{\"now\":1}");
  for (const auto& [key, first] :
       {std::pair{kSteer, "{\"steer\":true}\n"}, std::pair{kLook, "{\"steer\":false}\n"}}) {
    Client client(server_.Port());
    client.Send(Head("GET /events", "X-Key: " + key + "\r\n"));
    EXPECT_TRUE(client.AwaitText(first));
    EXPECT_TRUE(client.AwaitText("{\"now\":1}\n"));
  }
}

TEST_F(Server, SeveralWatchAtOnceAndOneMoreThanMayIsTurnedAway) {
  StartSource();
  std::deque<Client> viewers;
  for (size_t i = 0; i < WebServer::kMostViewers; ++i) {
    viewers.emplace_back(server_.Port());
    viewers.back().Send(Live());
    EXPECT_EQ(viewers.back().Status(), 200);
  }
  EXPECT_NE(viewers[0].Said().find("video/mp4; codecs=\"avc1.640028,mp4a.40.2\""),
            std::string::npos);
  EXPECT_EQ(Ask(Live()), 429);
  for (Client& viewer : viewers) EXPECT_TRUE(viewer.AwaitBytes(1'000'000));
  // Their places become free.
  viewers.clear();
  EXPECT_TRUE(Eventually([&] { return broadcast_.ViewerCount() == 0; }));
  EXPECT_EQ(Ask(Live()), 200);
}

TEST_F(Server, OneThatDoesntReadIsEndedAndHoldsUpNobody) {
  StartSource();
  Watcher quick(server_.Port(), Live());
  Client stuck(server_.Port());
  stuck.Send(Live());
  EXPECT_EQ(stuck.Status(), 200);
  EXPECT_TRUE(Eventually([&] { return broadcast_.ViewerCount() == 2; }));
  // Its window fills, and then what it would need next has gone: nobody waits for it.
  EXPECT_TRUE(quick.Gets(2 * WebBroadcast::kMostBytes));
  while (stuck.AwaitBytes(stuck.Said().size() + 1) && broadcast_.ViewerCount() == 2) stuck.Forget();
  EXPECT_EQ(broadcast_.ViewerCount(), 1U);
  EXPECT_TRUE(quick.Gets(3'000'000));
}

TEST_F(Server, AHundredConnectionsLeaveTheStreamAlone) {
  StartSource();
  Watcher viewer(server_.Port(), Live());
  std::deque<Client> crowd;
  for (int i = 0; i < 100; ++i) {
    crowd.emplace_back(server_.Port());
    crowd.back().Send("GET / HT");  // and nothing more
  }
  EXPECT_TRUE(viewer.Gets(3'000'000));
  constexpr size_t kTurnedAway = 100 - WebServer::kMostConnectionsAnAddress;
  EXPECT_TRUE(Eventually(
      [&] { return size_t(std::ranges::count_if(crowd, &Client::Ended)) >= kTurnedAway; }));
  // Place for others comes back.
  crowd.clear();
  EXPECT_TRUE(Eventually([&] { return Ask(Head("GET /")) == 200; }));
  EXPECT_TRUE(viewer.Gets(3'000'000));
}

TEST_F(Server, WhatIsTooLargeIsRefusedWithoutBeingKept) {
  StartSource();
  Watcher viewer(server_.Port(), Live());
  const std::string megabyte(1 << 20, 'x');
  const auto ends = [](Client& client, const std::string& piece) {
    for (int i = 0; i < 64; ++i) {
      if (!client.Send(piece)) return true;
    }
    return false;
  };
  {
    Client line(server_.Port());
    line.Send("GET /");
    EXPECT_TRUE(ends(line, megabyte));
  }
  {
    Client headers(server_.Port());
    headers.Send("GET / HTTP/1.1\r\n");
    std::string many;
    while (many.size() < megabyte.size()) many += "A: b\r\n";
    EXPECT_TRUE(ends(headers, many));
  }
  {
    Client body(server_.Port());
    body.Send(Head("POST /command", "X-Key: " + kSteer + "\r\nContent-Length: 1000000000\r\n"));
    EXPECT_TRUE(ends(body, megabyte));
  }
  {
    Client chunked(server_.Port());
    chunked.Send(Head("POST /command", "X-Key: " + kSteer + "\r\nTransfer-Encoding: chunked\r\n"));
    EXPECT_TRUE(ends(chunked, "100000\r\n" + megabyte + "\r\n"));
  }
  EXPECT_EQ(Ask(Post(std::string(WebServer::kMostBodyBytes, 'x'))), 400);
  EXPECT_EQ(Ask(Post(std::string(WebServer::kMostBodyBytes + 1, 'x'))), 0);
  EXPECT_TRUE(commands_.empty());
  EXPECT_TRUE(viewer.Gets(3'000'000));
}

TEST_F(Server, EndsAtOnceWhoeverWatches) {
  StartSource();
  std::deque<Client> viewers;
  for (int i = 0; i < 4; ++i) {
    viewers.emplace_back(server_.Port());
    viewers.back().Send(Live());
    EXPECT_EQ(viewers.back().Status(), 200);
  }
  Client news(server_.Port());
  news.Send(Head("GET /events", "X-Key: " + kLook + "\r\n"));
  EXPECT_EQ(news.Status(), 200);
  Client silent(server_.Port());
  silent.Send("GET ");
  server_.Stop();
  EXPECT_TRUE(viewers[0].AwaitEnd());
  EXPECT_TRUE(news.AwaitEnd());
  EXPECT_EQ(broadcast_.ViewerCount(), 0U);
}

// All ask before there is anything to watch.
TEST(ServerWithoutAStream, LetsNoMoreWaitForItThanMayWatch) {
  WebBroadcast late(SystemClock());
  WebNews news(SystemClock());
  WebServer server({late, news, [](const Command&) { return 204; }});
  std::string sentence;
  ASSERT_TRUE(server.Start({*ParseAddress("127.0.0.1"), 0}, {kSteer, kLook}, sentence));
  std::deque<Client> clients;
  constexpr size_t kTooMany = 4;
  for (size_t i = 0; i < WebServer::kMostViewers + kTooMany; ++i) {
    clients.emplace_back(server.Port());
    clients.back().Send("GET /live HTTP/1.1\r\nHost: localhost:" + std::to_string(server.Port()) +
                        "\r\nX-Key: " + kLook + "\r\n\r\n");
  }
  EXPECT_TRUE(Eventually([&] { return Answered(clients) == kTooMany; }));
  late.Begin({{std::byte('<')}, {std::byte('<')}, "avc1.640028,mp4a.40.2", "avc1.640028"});
  std::vector<int> statuses;
  for (Client& client : clients) statuses.push_back(client.Status());
  EXPECT_EQ(std::ranges::count(statuses, 200), std::ptrdiff_t(WebServer::kMostViewers));
  EXPECT_EQ(std::ranges::count(statuses, 429), std::ptrdiff_t(kTooMany));
}

TEST_F(Server, WithoutAStreamAViewerIsToldSo) {
  WebBroadcast none(SystemClock());
  WebNews news(SystemClock());
  WebServer server({none, news, [](const Command&) { return 204; }});
  std::string sentence;
  ASSERT_TRUE(server.Start({*ParseAddress("127.0.0.1"), 0}, {kSteer, kLook}, sentence));
  Client client(server.Port());
  client.Send("GET /live HTTP/1.1\r\nHost: localhost:" + std::to_string(server.Port()) +
              "\r\nX-Key: " + kLook + "\r\n\r\n");
  none.Stop();
  EXPECT_EQ(client.Status(), 503);
  // A port that is taken is said so.
  WebServer other({none, news, [](const Command&) { return 204; }});
  EXPECT_FALSE(other.Start({*ParseAddress("127.0.0.1"), server.Port()}, {kSteer, kLook}, sentence));
  EXPECT_NE(sentence.find("can't serve the page at 127.0.0.1:"), std::string::npos);
}

}  // namespace
}  // namespace Veldrift
