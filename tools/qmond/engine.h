// Runs the operations: starts each when it is due, ends what takes too long, publishes results. One
// probe of an operation is under way at a time. Knows neither sockets nor the loop; whoever drives
// it gives the time.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/common/timer_heap.h"
#include "tools/qmond/kinds/kinds.h"
#include "tools/qmond/outcome.h"
#include "tools/qmond/table_writer.h"

namespace ot::qmond {

struct engine_hooks {
  std::function<started(const operation& what, probe_done done)> start;
  std::function<std::uint64_t()> now_us;      // monotonic
  std::function<std::uint32_t()> wall_clock;  // seconds
};

// How many operations a new configuration touched.
struct difference {
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
  std::size_t kept = 0;
};

class engine {
 public:
  // The table stands at `table_path` once a configuration was applied.
  engine(std::string table_path, engine_hooks hooks);
  ~engine();
  engine(const engine&) = delete;
  engine& operator=(const engine&) = delete;

  // Takes the operations over. What is the same goes on undisturbed. Throws std::system_error when
  // there is no room for a larger table; then nothing has changed.
  difference apply(const std::vector<operation>& operations);

  // Does what is due. To be called when next_due_us() has come, and as well at any other time.
  void run_due();
  // When something is due next; unset without operations.
  [[nodiscard]] std::optional<std::uint64_t> next_due_us() const noexcept;

  // Shows readers that the operations are alive; every second.
  void beat() noexcept;

 private:
  struct runner;

  void add(const operation& config);
  void remove(std::uint32_t id);
  void make_room(std::size_t operations);
  void renew_table(std::size_t operations);
  std::map<std::uint32_t, std::uint32_t> fill(table_writer& table) const;
  void put_off(runner& one, std::uint64_t due_us);
  void start(runner& one);
  void wait_for_room(runner& one);
  void finish(runner& one, return_code code);
  bool gets_more_time(runner& one, std::uint64_t now_us);

  std::string table_path_;
  engine_hooks hooks_;
  std::unique_ptr<table_writer> table_;
  std::map<std::uint32_t, std::unique_ptr<runner>> runners_;  // by id
  timer_heap due_;                                            // of the runners, all of them
};

// The delay of an operation's first probe: spread over its interval, at most ten seconds, so that
// neighbours do not start together.
std::uint64_t first_delay_us(const operation& config) noexcept;

}  // namespace ot::qmond
