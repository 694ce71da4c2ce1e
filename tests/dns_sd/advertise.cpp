// The advertiser alone, as a process of its own, over the system's real responder:
//   dns_sd_advertise HOME ID NAME PORT TRANSMIT
// Settings and log lie below HOME. Takes commands on its standard input, one a line, and answers
// each with one line:
//   start  "registered NANOS" or "refused NANOS": the steady clock's time when it was asked to
//   lose   "lost": takes the service off the wire behind the advertiser's back
//   stop   "stopped"
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "identity/dns_sd_service_advertiser.h"
#include "support/paths.h"

namespace Veldrift {
namespace {

// The real responder, which can be made to lose what it has registered.
class LosingResponder final : public DnsSdResponder {
 public:
  explicit LosingResponder(std::unique_ptr<DnsSdResponder> real) : real_(std::move(real)) {}

  std::unique_ptr<ServiceInstance> ConstructInstance(const ServiceDescription& service,
                                                     uint32_t& error) override {
    last_ = service;
    return real_->ConstructInstance(service, error);
  }
  uint32_t Register(ServiceInstance& instance, RegisterCallback callback) override {
    return real_->Register(instance, std::move(callback));
  }
  uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) override {
    return real_->Deregister(instance, std::move(callback));
  }
  uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                  BrowseHandle& handle) override {
    return real_->Browse(serviceType, std::move(callback), handle);
  }
  void BrowseCancel(BrowseHandle handle) override { real_->BrowseCancel(handle); }

  void Lose() {
    uint32_t error = 0;
    const auto instance = real_->ConstructInstance(last_, error);
    if (!instance) return;
    real_->Deregister(*instance, [](uint32_t, std::unique_ptr<ServiceInstance>) { return true; });
  }

 private:
  const std::unique_ptr<DnsSdResponder> real_;
  ServiceDescription last_;
};

int Run(const ServiceInfo& info, uint16_t port) {
  std::unique_ptr<DnsSdResponder> real = CreateDnsSdResponder();
  if (!real) return 1;
  auto losing = std::make_unique<LosingResponder>(std::move(real));
  LosingResponder& responder = *losing;
  DnsSdServiceAdvertiser advertiser(std::move(losing), SystemClock());
  for (std::string command; std::getline(std::cin, command);) {
    const int64_t asked = SteadyNanos();
    if (command == "start") {
      const bool started = advertiser.Start(port, info);
      std::cout << (started ? "registered " : "refused ") << asked << std::endl;
    } else if (command == "lose") {
      responder.Lose();
      std::cout << "lost" << std::endl;
    } else if (command == "stop") {
      advertiser.Stop();
      std::cout << "stopped" << std::endl;
    }
  }
  return 0;
}

}  // namespace
}  // namespace Veldrift

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  Veldrift::UseFoldersUnder(argv[1]);
  return Veldrift::Run({argv[2], argv[3], std::stoi(argv[5])},
                       static_cast<uint16_t>(std::stoi(argv[4])));
}
