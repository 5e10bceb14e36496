// Feeds arbitrary bytes to the engine on bfdd's vty socket as what that says: as the stream, as its
// lists, as the configuration and as the live log. Whatever it says, each command that follows is
// one line about one peer, and there is an end to them.
//
// The first byte says what the rest is, and in which portions a stream arrives.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/bfd/frr_vty/answer.h"
#include "platform/linux/bfd/frr_vty/session_table.h"

namespace ot::bfd::vty {
namespace {

constexpr std::size_t changes_limit = 100'000;  // whatever bfdd says

void require(bool condition) noexcept {
  if (!condition) std::abort();
}

bool one_line(const std::string& command) {
  return command.size() < 256 && std::all_of(command.begin(), command.end(), [](char letter) {
           return letter >= ' ' && letter <= '~' && letter != '|' && letter != '?';
         });
}

struct nobody final : engine::owner {
  void session_changed(const session_key& key, const bfdc_session_status& now) noexcept override {
    require(key.destination != 0 && now.state <= bfd_state_up);
  }
  void engine_changed() noexcept override {}
};

class table_under_fuzz {
 public:
  table_under_fuzz() {
    for (std::uint32_t number = 1; number <= 4; ++number) {
      const session_key key{interface_name{number == 4 ? "eth 0" : "eth0"}, number << 24 | 10};
      table_.want({key, 0x0100000a, 50, 3});
    }
    table_.looked();
    finish(200);
  }

  void take(std::string_view bytes, unsigned what) {
    std::vector<listed_session> sessions;
    std::vector<listed_counters> counters;
    log_message message;
    session_move move;
    if (what == 0 && read_sessions(bytes, &sessions)) {
      table_.take_sessions(sessions, table_.moves());
    } else if (what == 1 && read_counters(bytes, &counters)) {
      table_.take_counters(counters);
    } else if (what == 2) {
      table_.take_configuration(read_configuration(bytes));
    } else if (what == 3 && read_log_message(bytes, &message)) {
      what = read_session_move(message.text, &move) ? what : 0;
    }
    if (what >= 3 && read_session_move(bytes, &move)) {
      table_.moved(move);
    }
  }

  // Does what is to be done, by way of refusals, too.
  void finish(std::uint64_t now) {
    bool look = false;
    std::size_t count = 0;
    while (const auto change = table_.next({now, true, false, addresses_}, &look)) {
      require(change->commands.size() > 2 && change->commands.back() == "end");
      require(std::all_of(change->commands.begin(), change->commands.end(), one_line));
      require(++count < changes_limit);
      change_outcome outcome;
      if (count % 3 == 0) {
        outcome = {count % change->commands.size(), "% no"};
      }
      table_.done(*change, outcome, now);
    }
  }

  void stream(std::string_view bytes, std::size_t portion) {
    answer_reader reader;
    auto found = answer_reader::found::nothing;
    while (!bytes.empty() && found == answer_reader::found::nothing) {
      const std::size_t count = std::min(portion, bytes.size());
      found = reader.take(bytes.substr(0, count));
      bytes.remove_prefix(count);
    }
    if (found == answer_reader::found::answer) {
      require(reader.text().find('\0') == std::string_view::npos);
      take(reader.text(), portion % 3);
    }
  }

  void end() {
    table_.looked();
    finish(100'000);
    table_.lost();
    for (const change& each : table_.final_changes()) {
      require(each.commands.empty());  // nothing is ours any more
    }
  }

 private:
  nobody owner_;
  session_table table_{owner_, peer_mark{0x12345678}};
  std::vector<interface_address> addresses_;
};

}  // namespace
}  // namespace ot::bfd::vty

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest{reinterpret_cast<const char*>(data + 1), size - 1};
  ot::bfd::vty::table_under_fuzz engine;
  if (*data % 2 == 0) {
    engine.stream(rest, *data / 2 + 1U);
  } else {
    engine.take(rest, *data / 2 % 5U);
    engine.finish(50'000);
    engine.take(rest, 0);
  }
  engine.end();
  return 0;
}
