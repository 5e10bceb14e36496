// Finds the addresses of names: by the hosts file and the DNS servers of the system, without
// waiting and without a thread.
#pragma once

#include <sys/stat.h>
#include <systemd/sd-event.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/qmond/name_channel.h"

namespace ot::qmond {

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

  // Calls `call` from the loop with the first address found, of that family or, for AF_UNSPEC, an
  // IPv4 one if there is any; unset when there is none. The servers are asked at a pace that lets
  // each of them answer within `timeout_ms`. Throws std::runtime_error or std::system_error when
  // they cannot be asked at all.
  std::unique_ptr<name_query> look_up(const std::string& name, int family, std::uint16_t port,
                                      std::uint32_t timeout_ms, name_found call);

  // Lets the system's configuration be read again before the next query; what is under way goes on.
  // A changed file is noticed without this.
  void refresh() noexcept;

 private:
  name_channel& channel_for(std::uint32_t timeout_ms);

  sd_event* loop_;
  std::optional<struct stat> servers_file_;  // as it was when the channels were made
  std::map<std::uint32_t, std::unique_ptr<name_channel>> channels_;
  std::vector<std::unique_ptr<name_channel>> retired_;  // until they are idle
};

}  // namespace ot::qmond
