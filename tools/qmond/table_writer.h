// Makes and fills the probe statistics table. Owned by one thread; throws std::system_error where
// the kernel refuses, so that an operation that has no room is reported and not lost.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/probes/qmon/table_layout.h"
#include "platform/linux/probes/qmon/table_view.h"
#include "tools/qmond/config.h"

namespace ot::qmond {

class table_writer {
 public:
  // Makes a table with room for `operations` (at most operations_max) next to `path`. The salt says
  // where each of them has its place.
  table_writer(std::string path, std::uint32_t operations, std::uint32_t salt = 0);
  // Marks the table as closed; the file stays.
  ~table_writer();
  table_writer(const table_writer&) = delete;
  table_writer& operator=(const table_writer&) = delete;

  // Puts the table at `path`, with what has been published in it so far; the one that stood there,
  // whoever left it behind, is marked as closed. Once.
  void install();

  // How many operations it has room for.
  [[nodiscard]] std::uint32_t capacity() const noexcept { return slots_ / 2; }

  // Gives the operation a slot, without a result so far; nothing when too many others have theirs
  // near its place: then it takes a table with another salt. Only for an operation that has none,
  // and while there are fewer than capacity().
  std::optional<std::uint32_t> add(std::uint32_t op_id, const description& about) noexcept;
  void remove(std::uint32_t slot) noexcept;

  // Publishes the slot's results; the words of the op id and the use are filled in here.
  void publish(std::uint32_t slot, statistics result) noexcept;

  // To be called every second.
  void beat() noexcept;

 private:
  // What a slot is used for. The writer does not read its table: others may have written there.
  struct held_slot {
    std::uint32_t op_id = 0;
    slot_use use = slot_use::free;
  };

  void set_state(std::uint32_t state) noexcept;
  void set_use(std::uint32_t slot, slot_use use, std::uint32_t op_id) noexcept;

  std::string path_;
  table_header* header_ = nullptr;
  statistics_cell* statistics_ = nullptr;
  description_cell* descriptions_ = nullptr;
  std::uint32_t slots_;
  std::uint32_t salt_;
  std::vector<held_slot> held_;
};

// The words of a description. Texts that are too long are cut.
description describe(const std::string& text, std::uint32_t interval_ms, std::uint32_t timeout_ms);
description describe(const operation& config);
std::string description_text(const description& about);

}  // namespace ot::qmond
