// Who may have what of the small server: decided from the request's head alone, before any of its
// body is read.
//
// Two keys, new at each start unless they are kept in a file: one to steer, which also looks, and
// one only to look. They stand behind the address's "#", which no browser sends; the page sends its
// key in a header that no page of another origin can send here, since nobody answers its browser's
// question whether it may.
//
// Threads: any; nothing changes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Veldrift {

struct WebKeys {
  std::string steer;
  std::string look;
};

// New ones, or those of the file, which is made if it isn't there. Nothing, and a sentence, if that
// failed. `file` may be empty.
std::optional<WebKeys> LoadWebKeys(const std::filesystem::path& file, std::string& sentence);

// A request's head; absent headers are empty.
struct WebRequest {
  std::string_view method, path, host, origin;
  std::string_view key;       // the header's
  std::string_view queryKey;  // players can't send headers: good for looking at /live
};

struct WebVerdict {
  int status = 200;       // of HTTP; anything else is the answer
  bool wrongKey = false;  // a key was given or was needed
  bool maySteer = false;
};

class WebGate {
 public:
  // `port`: what the server listens on.
  WebGate(WebKeys keys, uint16_t port) : keys_(std::move(keys)), port_(port) {}

  WebVerdict Judge(const WebRequest& request) const;

 private:
  bool IsOurName(std::string_view host) const;

  const WebKeys keys_;
  const uint16_t port_;
};

}  // namespace Veldrift
