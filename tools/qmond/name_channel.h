// A c-ares channel on our loop: the name servers as the system names them when it is made, asked at
// a pace that fits operations with one timeout.
#pragma once

#include <systemd/sd-event.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tools/daemon/loop.h"
#include "tools/qmond/cares.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {

// Called with the first address found; unset when there is none.
using name_found = std::function<void(const address& found)>;

class name_channel {
 public:
  // A server that is silent is given up early enough that each other one may still be heard within
  // `timeout_ms`. Throws std::runtime_error when the configuration cannot be read,
  // std::system_error when the loop has no room.
  name_channel(sd_event* loop, std::uint32_t timeout_ms);
  // Not from within a call. What is under way is answered with nothing found.
  ~name_channel();
  name_channel(const name_channel&) = delete;
  name_channel& operator=(const name_channel&) = delete;

  // Calls `call` once: at once, or from the loop. With AF_UNSPEC for `family` an IPv4 address is
  // preferred.
  void ask(const std::string& name, int family, std::uint16_t port, name_found call);

  // Whether nothing is under way, not even a call.
  [[nodiscard]] bool idle() const noexcept { return under_way_ == 0; }

 private:
  struct question;

  static void on_answer(void* context, int status, int timeouts, ares_addrinfo* result);
  void open(std::uint32_t try_ms, std::uint32_t longest_ms);
  void ask_family(const std::string& name, int family, std::uint16_t port, name_found call);
  void watch(ares_socket_t socket, bool readable, bool writable);
  void add_socket(ares_socket_t socket, std::uint32_t events) noexcept;
  void process(ares_socket_t readable, ares_socket_t writable);
  void give_up_late();
  void set_timer();

  sd_event* loop_;
  cares_channel channel_ = nullptr;
  std::size_t under_way_ = 0;
  std::map<ares_socket_t, loop_source> sockets_;
  loop_source timer_;
};

}  // namespace ot::qmond
