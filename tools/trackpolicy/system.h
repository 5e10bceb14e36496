// The engine's host on a router: commands as child processes, at most a fixed number at a time and
// one of a shell; files; and what is remembered, a small file a policy in /run.
#pragma once

#include <systemd/sd-event.h>

#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/unique_fd.h"
#include "tools/children/groups.h"
#include "tools/children/spawn.h"
#include "tools/daemon/loop.h"
#include "tools/trackpolicy/kernel/netlink_network.h"
#include "tools/trackpolicy/reaction.h"

namespace ot::trackpolicy {

inline constexpr const char* memory_folder = "/run/object_tracking/policies";

class system_host : public host {
 public:
  static constexpr std::size_t commands_max = 32;

  // Blocks SIGCHLD. Throws failure when there is no place to remember in.
  explicit system_host(sd_event* loop);
  ~system_host() override;

  // Looks up whom commands run as, which may take a while.
  void prepare(const std::vector<policy>& policies);
  // Asks every command to end; whether none is left.
  bool end_all();
  [[nodiscard]] bool idle() const noexcept { return children_.empty(); }

  std::uint64_t now_us() const override;
  void log(const policy& of, const std::string& text) override;
  bool has_room(reaction& who, const policy& of) override;
  pid_t start(const policy& of, const words& argv, const words& environment,
              std::function<void(const command_end&)> ended, std::string* ret_error) override;
  bool end(pid_t command) override;
  void abandon(pid_t command) override;
  std::string recall(const std::string& policy_name) override;
  void remember(const std::string& policy_name, const std::string& text) override;
  void forget(const std::string& policy_name) override;
  std::vector<std::string> remembered() override;
  std::string recall_flaps() override;
  void remember_flaps(const std::string& text) override;
  void end_leftover(std::string_view who) override;
  bool file_has(const std::string& path, const std::string& content) override;
  std::string write_file(const std::string& path, const std::string& content) override;
  network& net() override { return network_; }

  // What tracks stand on, as the service says.
  void take_foundations(foundations tracks) { network_.take_foundations(std::move(tracks)); }

 private:
  struct child {
    std::string policy_name;
    words shell;
    std::function<void(const command_end&)> ended;
    unique_fd output;
    std::string line;  // what of its output has no end yet
    loop_source output_source;
    loop_source end_source;
    loop_source kill_timer;
  };
  struct waiting {
    std::string policy_name;
    words shell;
    reaction* who;
  };

  [[nodiscard]] bool is_free(const words& shell) const;
  unique_fd memory_for_more(const policy& of) const;
  void watch(pid_t command, child& one);
  bool read_output(child& one);
  void ended(pid_t command);
  void stop_waiting(const std::string& policy_name);
  void offer_room();

  sd_event* loop_;
  std::map<std::string, children::identity> users_;
  std::map<pid_t, child> children_;
  std::deque<waiting> waiting_;
  netlink_network network_;
};

}  // namespace ot::trackpolicy
