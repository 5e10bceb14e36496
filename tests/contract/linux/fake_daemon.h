// A daemon for tests: its Unix stream socket on the loop of the test. It serves one connection, the
// latest.
#pragma once

#include <systemd/sd-event.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/evm.h"

namespace ot::testing {

class fake_daemon {
 public:
  fake_daemon(evm* manager, std::string path);
  fake_daemon(const fake_daemon&) = delete;
  fake_daemon& operator=(const fake_daemon&) = delete;

  void listen();
  // Connections are lost, the socket's file stays.
  void die();
  // Closes the connection, or resets it with what is unread, and lives on.
  virtual void hang_up();
  void stop_reading();
  void read_again();
  void say(std::string_view bytes);

  [[nodiscard]] unsigned connections() const { return connections_; }
  [[nodiscard]] bool connected() const { return peer_ >= 0; }

 protected:
  // That of the daemon itself has it die.
  virtual ~fake_daemon() = default;

  // What has come in all is in `unread`; takes from its begin what it can use.
  virtual void take(std::string& unread) = 0;

  // What has come, without waiting for more.
  void read();
  [[nodiscard]] int peer() const { return peer_; }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  static int on_connect(sd_event_source* source, int fd, std::uint32_t events, void* self);
  static int on_readable(sd_event_source* source, int fd, std::uint32_t events, void* self);

  evm* manager_;
  std::string path_;
  int listener_ = -1;
  int peer_ = -1;
  sd_event_source* accept_ = nullptr;
  sd_event_source* readable_ = nullptr;
  std::string unread_;
  unsigned connections_ = 0;
};

}  // namespace ot::testing
