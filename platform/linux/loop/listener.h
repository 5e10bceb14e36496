// A listening Unix socket of the service: made with checks and rights, followed by the loop, and
// never a reason to spin: when the process has no descriptor for a new connection, an idle one
// gives way; if there is none, the new one is refused by means of a descriptor kept in reserve, and
// if not even that works, the listener pauses. All on the loop's thread.
#pragma once

#include <sys/socket.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <string>

#include "platform/linux/unique_fd.h"

namespace ot {

class unix_listener_owner {
 public:
  virtual ~unix_listener_owner() = default;
  // A client has connected. Whether it is root or the service's own user is said in `trusted`.
  virtual void client_connected(unique_fd socket, bool trusted) noexcept = 0;
  // Ends a client that has nothing under way, or for a trusted one any other, for its descriptor.
  // False when there is none.
  virtual bool make_way(bool for_trusted) noexcept = 0;
};

class unix_listener {
 public:
  explicit unix_listener(unix_listener_owner& owner) noexcept : owner_(owner) {}
  ~unix_listener();
  unix_listener(const unix_listener&) = delete;
  unix_listener& operator=(const unix_listener&) = delete;

  // Makes a socket of `type` at `path`, for the service's group, in the place of one that an
  // earlier instance left. Connections wait until serve(). 0, or an errno value with a text for the
  // operator.
  int open(sd_event* loop, const std::string& path, int type, std::string& ret_error);

  // From here on connections are accepted.
  void serve() noexcept;

  // Removes the socket's name.
  void unlink_path() const noexcept;

 private:
  static int on_connection(sd_event_source* source, int fd, std::uint32_t events,
                           void* listener) noexcept;
  static int on_pause_over(sd_event_source* source, std::uint64_t now, void* listener) noexcept;

  int bind_at(const std::string& path, int type, std::string& ret_error);
  void accept_one() noexcept;
  int accept_with_reserve() noexcept;
  void pause() noexcept;

  unix_listener_owner& owner_;
  std::string path_;
  unique_fd socket_;
  unique_fd reserve_;
  sd_event_source* accepting_ = nullptr;
  sd_event_source* pause_ = nullptr;
};

// Lets the process have as many descriptors as the system allows it, up to what its sockets can
// need at most.
void raise_descriptor_limit() noexcept;

}  // namespace ot
