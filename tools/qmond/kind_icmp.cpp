// ICMP echo: success is the echo. The sockets are shared; a probe is one packet under way.
#include "tools/qmond/probe_host.h"

namespace ot::qmond {
namespace {

class icmp_probe : public probe {
 public:
  explicit icmp_probe(icmp_socket& socket) noexcept : socket_(socket) {}
  ~icmp_probe() override { socket_.forget(sequence_); }

  int send(const operation& what, const address& where, probe_done done) {
    return socket_.send_echo(what, where, std::move(done), &sequence_);
  }

 private:
  icmp_socket& socket_;
  std::uint16_t sequence_ = 0;  // never a request's while nothing was sent
};

}  // namespace

started start_icmp(probe_host& host, const operation& what, const address& where, probe_done done) {
  icmp_socket& socket = where.family() == AF_INET ? host.icmp_v4 : host.icmp_v6;
  if (!socket.usable()) {
    return {.running = nullptr, .code = return_code::cannot_run};
  }
  auto made = std::make_unique<icmp_probe>(socket);
  if (const int error = made->send(what, where, std::move(done)); error != 0) {
    return {.running = nullptr, .code = code_of_errno(error)};
  }
  return {.running = std::move(made), .code = return_code::none};
}

}  // namespace ot::qmond
