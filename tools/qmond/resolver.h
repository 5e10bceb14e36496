// Finds the addresses of names: by the hosts file and the DNS servers of the system, without
// waiting and without a thread.
#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tools/qmond/cares.h"
#include "tools/qmond/loop.h"
#include "tools/qmond/sockets.h"

namespace ot::qmond {

using name_found = std::function<void(const address& found)>;

// A query under way; its end gives it up.
class name_query {
 public:
  struct state;
  explicit name_query(std::shared_ptr<state> shared) noexcept : state_(std::move(shared)) {}
  ~name_query();
  name_query(const name_query&) = delete;
  name_query& operator=(const name_query&) = delete;

  // Whether it was answered before look_up returned; then nothing is called.
  [[nodiscard]] bool answered() const noexcept;
  [[nodiscard]] const address& answer() const noexcept;

 private:
  std::shared_ptr<state> state_;
};

class resolver {
 public:
  explicit resolver(sd_event* loop);
  ~resolver();
  resolver(const resolver&) = delete;
  resolver& operator=(const resolver&) = delete;

  // Calls `call` from the loop with the first address found, of that family if it is not AF_UNSPEC;
  // unset when there is none.
  std::unique_ptr<name_query> look_up(const std::string& name, int family, std::uint16_t port,
                                      name_found call);

 private:
  void watch(ares_socket_t socket, bool readable, bool writable);
  void add_socket(ares_socket_t socket, std::uint32_t events) noexcept;
  void process(ares_socket_t readable, ares_socket_t writable);
  void set_timer();

  sd_event* loop_;
  cares_channel channel_ = nullptr;
  std::map<ares_socket_t, loop_source> sockets_;
  loop_source timer_;
};

}  // namespace ot::qmond
