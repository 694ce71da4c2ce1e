#include "web_server.h"

#include <microhttpd.h>

#include <optional>
#include <string_view>
#include <utility>

#include "tools/platform/posix/web_listener.h"
#include "web_command.h"
#include "web_page.h"

namespace Veldrift {

namespace {

constexpr int kMostUnsentBytes = 128 << 10;
constexpr size_t kBlockBytes = size_t{256} << 10;
constexpr int64_t kStreamPatienceNs = 2 * kNanosPerSecond;

// Nothing of another origin runs in the page, shows it, or reads what it reads.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; media-src "
     "blob:; "
     "img-src data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
};

MHD_Result Queue(MHD_Connection* connection, int status, MHD_Response* response, const char* type) {
  if (response == nullptr) return MHD_NO;
  for (const auto& [name, value] : kHeaders) MHD_add_response_header(response, name, value);
  MHD_add_response_header(response, "Content-Type", type);
  const MHD_Result result = MHD_queue_response(connection, unsigned(status), response);
  MHD_destroy_response(response);
  return result;
}

// `text` stays where it is.
MHD_Result Answer(MHD_Connection* connection, int status, std::string_view text, const char* type) {
  return Queue(connection, status,
               MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                               MHD_RESPMEM_PERSISTENT),
               type);
}

MHD_Result Refuse(MHD_Connection* connection, int status) {
  return Answer(connection, status, "", "text/plain");
}

std::string_view Header(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, kind, name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

// What is kept of a request between the calls.
struct RequestState {
  bool maySteer = false;
  std::string body;
};

// An answer without an end: what `Source` gives, until it gives nothing.
template <typename Source>
MHD_Result AnswerEndlessly(MHD_Connection* connection, std::unique_ptr<Source> source,
                           const char* type) {
  const auto read = [](void* context, uint64_t, char* out, size_t most) -> ssize_t {
    const size_t count =
        static_cast<Source*>(context)->Read({reinterpret_cast<std::byte*>(out), most});
    return count == 0 ? ssize_t(MHD_CONTENT_READER_END_OF_STREAM) : ssize_t(count);
  };
  const auto free = [](void* context) { delete static_cast<Source*>(context); };
  MHD_Response* response =
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlockBytes, read, source.get(), free);
  if (response != nullptr) source.release();  // the response's now
  return Queue(connection, MHD_HTTP_OK, response, type);
}

// The news as lines, behind a first one for this reader alone; an empty one where there are none.
class NewsReader {
 public:
  NewsReader(WebNews& news, const char* first) : news_(news), line_(first) {
    rest_ = std::as_bytes(std::span(line_));
  }

  size_t Read(std::span<std::byte> out) {
    if (rest_.empty()) {
      std::optional<std::string> line = news_.Next(seen_);
      if (!line) return 0;
      line_ = std::move(*line) + "\n";
      rest_ = std::as_bytes(std::span(line_));
    }
    const size_t count = std::min(out.size(), rest_.size());
    std::copy_n(rest_.begin(), count, out.begin());
    rest_ = rest_.subspan(count);
    return count;
  }

 private:
  WebNews& news_;
  uint64_t seen_ = 0;
  std::string line_;
  std::span<const std::byte> rest_;
};

// One of so many places; given back in the end.
class Seat {
 public:
  // Null: all are taken.
  static std::unique_ptr<Seat> Take(std::atomic<size_t>& taken, size_t most) {
    std::unique_ptr<Seat> seat(new Seat(taken));
    if (seat->number_ >= most) return nullptr;
    return seat;
  }
  ~Seat() { --taken_; }
  Seat(const Seat&) = delete;
  Seat& operator=(const Seat&) = delete;

 private:
  explicit Seat(std::atomic<size_t>& taken) : taken_(taken), number_(taken++) {}

  std::atomic<size_t>& taken_;
  const size_t number_;
};

// The stream, for somebody who has a seat.
class SeatedViewer {
 public:
  SeatedViewer(std::unique_ptr<WebBroadcast::Viewer> viewer, std::unique_ptr<Seat> seat)
      : viewer_(std::move(viewer)), seat_(std::move(seat)) {}

  size_t Read(std::span<std::byte> out) { return viewer_->Read(out); }

 private:
  const std::unique_ptr<WebBroadcast::Viewer> viewer_;
  const std::unique_ptr<Seat> seat_;
};

void SetPatience(MHD_Connection* connection, unsigned seconds) {
  MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, seconds);
}

}  // namespace

class WebServer::Handler {
 public:
  Handler(const WebServices& services, const WebKeys& keys, uint16_t port,
          std::atomic<uint64_t>& refused)
      : services_(services), gate_(keys, port), refused_(refused) {}

  // Called for a request's head, then for each piece of its body, then for its end. `state` is the
  // request's own.
  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path,
                              const char* method, const char*, const char* data, size_t* size,
                              void** state);
  static void OnCompleted(void*, MHD_Connection* connection, void** state,
                          MHD_RequestTerminationCode) {
    delete static_cast<RequestState*>(std::exchange(*state, nullptr));
    SetPatience(connection, kIdlePatienceSeconds);
  }
  static void OnConnection(void*, MHD_Connection* connection, void**,
                           MHD_ConnectionNotificationCode code);

 private:
  MHD_Result Serve(MHD_Connection* connection, std::string_view path, const RequestState& request);
  MHD_Result ServeLive(MHD_Connection* connection);
  MHD_Result ServeCommand(MHD_Connection* connection, const std::string& body);
  WebVerdict Judge(MHD_Connection* connection, const char* path, const char* method) const;

  const WebServices& services_;
  const WebGate gate_;
  std::atomic<uint64_t>& refused_;
  std::atomic<size_t> seats_{0};  // taken
};

void WebServer::Handler::OnConnection(void*, MHD_Connection* connection, void**,
                                      MHD_ConnectionNotificationCode code) {
  if (code != MHD_CONNECTION_NOTIFY_STARTED) return;
  SetPatience(connection, kIdlePatienceSeconds);
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info != nullptr) PrepareLiveConnection(info->connect_fd, kMostUnsentBytes);
}

WebVerdict WebServer::Handler::Judge(MHD_Connection* connection, const char* path,
                                     const char* method) const {
  return gate_.Judge({.method = method,
                      .path = path,
                      .host = Header(connection, MHD_HEADER_KIND, "Host"),
                      .origin = Header(connection, MHD_HEADER_KIND, "Origin"),
                      .key = Header(connection, MHD_HEADER_KIND, "X-Key"),
                      .queryKey = Header(connection, MHD_GET_ARGUMENT_KIND, "key")});
}

// The head decides before any of the body is read.
MHD_Result WebServer::Handler::OnRequest(void* self, MHD_Connection* connection, const char* path,
                                         const char* method, const char*, const char* data,
                                         size_t* size, void** state) {
  auto& handler = *static_cast<Handler*>(self);
  auto* request = static_cast<RequestState*>(*state);
  if (request == nullptr) {
    const WebVerdict verdict = handler.Judge(connection, path, method);
    if (verdict.wrongKey) ++handler.refused_;
    if (verdict.status != MHD_HTTP_OK) return Refuse(connection, verdict.status);
    SetPatience(connection, kPatienceSeconds);
    *state = new RequestState{verdict.maySteer, {}};
    return MHD_YES;
  }
  if (*size > 0) {
    if (request->body.size() + *size > kMostBodyBytes) return MHD_NO;
    request->body.append(data, std::exchange(*size, 0));
    return MHD_YES;
  }
  return handler.Serve(connection, path, *request);
}

MHD_Result WebServer::Handler::Serve(MHD_Connection* connection, std::string_view path,
                                     const RequestState& request) {
  if (path == "/live") return ServeLive(connection);
  if (path == "/command") return ServeCommand(connection, request.body);
  if (path == "/events") {
    const char* first = request.maySteer ? "{\"steer\":true}\n" : "{\"steer\":false}\n";
    return AnswerEndlessly(connection, std::make_unique<NewsReader>(services_.news, first),
                           "application/x-ndjson");
  }
  const WebPage* page = FindWebPage(path);
  if (page == nullptr) return Refuse(connection, MHD_HTTP_NOT_FOUND);
  return Answer(connection, MHD_HTTP_OK, page->text, page->type.data());
}

// The seat is taken before the wait for a stream, in which others come as well.
MHD_Result WebServer::Handler::ServeLive(MHD_Connection* connection) {
  auto seat = Seat::Take(seats_, kMostViewers);
  if (!seat) return Refuse(connection, MHD_HTTP_TOO_MANY_REQUESTS);
  const bool sound = Header(connection, MHD_GET_ARGUMENT_KIND, "sound") != "0";
  auto viewer = services_.broadcast.Watch(sound, kStreamPatienceNs);
  if (!viewer) return Refuse(connection, MHD_HTTP_SERVICE_UNAVAILABLE);
  const std::string type = "video/mp4; codecs=\"" + viewer->Codecs() + "\"";
  return AnswerEndlessly(
      connection, std::make_unique<SeatedViewer>(std::move(viewer), std::move(seat)), type.c_str());
}

MHD_Result WebServer::Handler::ServeCommand(MHD_Connection* connection, const std::string& body) {
  const std::optional<Command> command = ParseWebCommand(body);
  return Refuse(connection, command ? services_.command(*command) : MHD_HTTP_BAD_REQUEST);
}

WebServer::WebServer(WebServices services) : services_(std::move(services)) {}

WebServer::~WebServer() { Stop(); }

bool WebServer::Start(const Ipv4Endpoint& local, const WebKeys& keys, std::string& sentence) {
  std::string reason;
  const int listener = OpenWebListener(local, reason);
  if (listener < 0) {
    sentence = "can't serve the page at " + AddressText(local.address) + ":" +
               std::to_string(local.port) + ": " + reason;
    return false;
  }
  port_ = ListeningPort(listener);
  handler_ = std::make_unique<Handler>(services_, keys, port_, refused_);
  daemon_ = MHD_start_daemon(
      MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ITC, 0, nullptr,
      nullptr, Handler::OnRequest, handler_.get(), MHD_OPTION_LISTEN_SOCKET, MHD_socket(listener),
      MHD_OPTION_NOTIFY_COMPLETED, Handler::OnCompleted, nullptr, MHD_OPTION_NOTIFY_CONNECTION,
      Handler::OnConnection, nullptr, MHD_OPTION_CONNECTION_TIMEOUT, kPatienceSeconds,
      MHD_OPTION_CONNECTION_LIMIT, kMostConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
      kMostConnectionsAnAddress, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionBytes,
      MHD_OPTION_END);
  if (daemon_ != nullptr) return true;
  CloseWebListener(listener);
  sentence = "can't serve the page";
  return false;
}

void WebServer::Stop() {
  services_.broadcast.Stop();
  services_.news.Stop();
  if (daemon_ != nullptr) MHD_stop_daemon(std::exchange(daemon_, nullptr));
}

}  // namespace Veldrift
