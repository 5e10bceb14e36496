// A bfdd for tests: its vty socket and live log with what the real one does, its oddities above
// all, on the loop of the test, and the means to do anything else instead.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/evm.h"
#include "tests/contract/linux/fake_daemon.h"

namespace ot::testing {

struct vty_peer {
  std::string local;     // its present address
  std::string original;  // the one it was made with
  std::string profile;
  unsigned receive = 300;
  unsigned transmit = 300;
  unsigned multiplier = 3;
  bool configured = true;  // else of a routing protocol alone
  bool protocol = false;   // one uses it
  bool shut = false;
  std::string status = "down";
  std::string diagnostic = "ok";
  unsigned ups = 0;
  unsigned downs = 0;
};

// Address and interface.
using vty_key = std::pair<std::string, std::string>;

struct vty_answer {
  std::uint8_t code = 0;
  std::string text;
};

class fake_vty final : public fake_daemon {
 public:
  using fake_daemon::fake_daemon;
  ~fake_vty() override { die(); }

  // --- The process -------------------------------------------------------------------------------

  // As a daemon that started ten minutes ago, or right now.
  void listen(bool long_ago = true);
  // Dies: peers and connections are lost, the socket's file stays.
  void die();
  void hang_up() override;
  // Serves the connection without the loop, on any one thread: waits for a command and obeys it.
  void serve_once();

  // What to do with a command in place of obeying it; false: obey it all the same.
  using reaction = std::function<bool(fake_vty& bfdd, const std::string& command)>;
  void react(reaction instead) { reaction_ = std::move(instead); }
  // Does what it is told; the answer.
  vty_answer obey(const std::string& command);

  // --- Talking -----------------------------------------------------------------------------------

  void answer(std::uint8_t code, const std::string& text);
  // Goes with the next answer, and is then closed.
  void send_descriptor(int fd) { descriptor_ = fd; }
  // A message of the live log, if somebody follows it.
  void log(const std::string& text, std::uint32_t lost = 0);
  void log_bytes(std::string_view datagram);
  // The live log alone ends.
  void end_log();
  // A session changes its state and logs that, if it is to.
  void set_state(const vty_key& key, const std::string& state, const std::string& reason = "");
  // The same without a word.
  void set_state_silently(const vty_key& key, const std::string& state);

  // --- What it has seen and has ------------------------------------------------------------------

  [[nodiscard]] const std::vector<std::string>& commands() const { return commands_; }
  // How many of them began so.
  [[nodiscard]] std::size_t count(std::string_view start) const;
  void forget_commands() { commands_.clear(); }
  [[nodiscard]] bool followed() const { return log_ >= 0; }
  std::map<vty_key, vty_peer>& peers() { return peers_; }
  bool& logs_sessions() { return logs_sessions_; }
  // Lines of the user's own in the running configuration, outside "bfd".
  void configure(const std::string& lines) { lines_ = lines; }
  std::string version = "10.3";

 private:
  enum class node { view, enable, config, bfd, peer };
  struct rule;
  static const rule rules[];

  void take(std::string& unread) override;
  void take_command(const std::string& command);
  bool run_in(node where, const std::string& command, vty_answer* ret);
  vty_answer enter_peer(const std::string& words);
  vty_answer no_peer(const std::string& words);
  vty_answer shut(bool shut);
  vty_answer follow_log();
  vty_answer number(const std::string& words, unsigned vty_peer::*field, unsigned least);
  [[nodiscard]] std::string configuration() const;
  [[nodiscard]] std::string sessions() const;
  [[nodiscard]] vty_answer session(const std::string& words) const;
  [[nodiscard]] std::string counters() const;

  int log_ = -1;
  int descriptor_ = -1;  // goes with the next answer
  reaction reaction_;
  std::vector<std::string> commands_;
  node node_ = node::view;
  vty_key entered_;
  std::map<vty_key, vty_peer> peers_;
  bool logs_sessions_ = false;
  std::string lines_;
};

}  // namespace ot::testing
