// The engine. An operation has one entry in the schedule: the next start while it waits, its
// timeout while a probe is under way. Starts are counted from when they were due, so that what
// makes them a little late, such as waking up once for many, does not make them fewer.
#include "tools/qmond/engine.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

namespace ot::qmond {
namespace {

constexpr std::uint64_t spread_max_us = 10000000;
// When there was no room for a probe, for example too many commands ran.
constexpr std::uint64_t retry_us = 50000;
// A timeout that is come to so late was overlooked: the loop waits a little to wake up for many at
// a time, but not that long.
constexpr std::uint64_t late_us = 50000;
constexpr std::uint64_t ns_per_us = 1000;
// More than one is needed once in very many configurations.
constexpr std::uint32_t salts_max = 16;

}  // namespace

struct engine::runner : timer_node {
  explicit runner(const operation& from) : config(from), results(from.rise, from.fall) {}

  const operation config;
  outcome results;
  std::uint32_t slot = 0;
  std::unique_ptr<probe> running;
  std::uint64_t started_us = 0;
  std::uint64_t rhythm_us = 0;        // from when the next start counts
  std::uint64_t without_room_us = 0;  // since when; 0: there was room
  bool has_more_time = false;         // than its timeout
};

std::uint64_t first_delay_us(const operation& config) noexcept {
  const std::uint64_t window = std::min(config.interval_ms * std::uint64_t{1000}, spread_max_us);
  // The golden ratio's multiples lie evenly, however many ids there are and wherever they begin.
  const std::uint32_t fraction = config.id * 2654435769U;
  return window * fraction >> 32;
}

engine::engine(std::string table_path, engine_hooks hooks)
    : table_path_(std::move(table_path)), hooks_(std::move(hooks)) {}

engine::~engine() = default;

void engine::make_room(std::size_t operations) {
  if (table_ == nullptr || operations > table_->capacity()) {
    renew_table(operations);
  }
}

// The new table is installed with all results in it.
void engine::renew_table(std::size_t operations) {
  std::map<std::uint32_t, std::uint32_t> slots;
  std::unique_ptr<table_writer> fresh;
  for (std::uint32_t salt = 0; slots.size() < runners_.size() || fresh == nullptr; ++salt) {
    if (salt == salts_max) {
      throw std::system_error(ENOSPC, std::generic_category(), table_path_);
    }
    fresh =
        std::make_unique<table_writer>(table_path_, static_cast<std::uint32_t>(operations), salt);
    slots = fill(*fresh);
  }
  fresh->install();
  table_ = std::move(fresh);
  for (const auto& [id, one] : runners_) {
    one->slot = slots[id];
  }
}

// The slots of the operations, as far as they find one.
std::map<std::uint32_t, std::uint32_t> engine::fill(table_writer& table) const {
  std::map<std::uint32_t, std::uint32_t> slots;
  for (const auto& [id, one] : runners_) {
    if (const auto slot = table.add(id, describe(one->config))) {
      table.publish(*slot, one->results.words());
      slots[id] = *slot;
    }
  }
  return slots;
}

difference engine::apply(const std::vector<operation>& operations) {
  difference made;
  std::map<std::uint32_t, const operation*> wanted;
  for (const operation& config : operations) {
    wanted[config.id] = &config;
  }
  make_room(std::max(operations.size(), runners_.size()));
  std::vector<std::uint32_t> gone;
  for (const auto& [id, one] : runners_) {
    const auto found = wanted.find(id);
    if (found != wanted.end() && *found->second == one->config) {
      ++made.kept;
      wanted.erase(found);
    } else {
      ++(found == wanted.end() ? made.removed : made.changed);
      gone.push_back(id);
    }
  }
  std::for_each(gone.begin(), gone.end(), [this](std::uint32_t id) { remove(id); });
  made.added = wanted.size() - made.changed;
  for (const auto& [id, config] : wanted) {
    add(*config);
  }
  return made;
}

// An operation that finds no slot near its place takes a new table, in which all have other places.
void engine::add(const operation& config) {
  if (!due_.reserve(runners_.size() + 1)) {
    throw std::bad_alloc();
  }
  const auto made = runners_.emplace(config.id, std::make_unique<runner>(config)).first;
  runner& one = *made->second;
  if (const auto slot = table_->add(config.id, describe(config))) {
    one.slot = *slot;
  } else {
    try {
      renew_table(std::max<std::size_t>(runners_.size(), table_->capacity()));
    } catch (...) {
      runners_.erase(made);
      throw;
    }
  }
  put_off(one, hooks_.now_us() + first_delay_us(config));
}

void engine::remove(std::uint32_t id) {
  const auto found = runners_.find(id);
  runner& one = *found->second;
  due_.remove(one);
  table_->remove(one.slot);
  runners_.erase(found);
}

void engine::put_off(runner& one, std::uint64_t due_us) {
  if (one.place != timer_node::not_in_heap) {
    due_.remove(one);
  }
  due_.insert(one, due_us * ns_per_us);
}

void engine::start(runner& one) {
  const std::uint64_t interval_us = one.config.interval_ms * std::uint64_t{1000};
  const std::uint64_t due_us = one.due_ns / ns_per_us;
  one.started_us = hooks_.now_us();
  // One that was so late that the next would follow at once begins a rhythm of its own.
  one.rhythm_us = one.started_us - due_us <= interval_us / 2 ? due_us : one.started_us;
  started begun = hooks_.start(one.config, [this, &one](return_code code) { finish(one, code); });
  if (begun.running != nullptr) {
    one.running = std::move(begun.running);
    one.has_more_time = false;
    put_off(one, one.started_us + one.config.timeout_ms * std::uint64_t{1000});
  } else if (begun.code == return_code::none) {
    wait_for_room(one);
  } else {
    finish(one, begun.code);
  }
}

// A result that came only when there is room at last would be one of long ago.
void engine::wait_for_room(runner& one) {
  if (one.without_room_us == 0) {
    one.without_room_us = one.started_us;
  }
  if (one.started_us - one.without_room_us >= one.config.timeout_ms * std::uint64_t{1000}) {
    finish(one, return_code::cannot_run);
  } else {
    put_off(one, one.started_us + retry_us);
  }
}

void engine::finish(runner& one, return_code code) {
  const std::uint64_t now_us = hooks_.now_us();
  const std::uint64_t begun_us = one.running == nullptr ? now_us : one.running->begun_us();
  one.running.reset();
  one.without_room_us = 0;
  one.results.record(code, now_us - begun_us, hooks_.wall_clock());
  table_->publish(one.slot, one.results.words());
  const std::uint64_t interval_us = one.config.interval_ms * std::uint64_t{1000};
  put_off(one, std::max(one.rhythm_us + interval_us, now_us + 1));
}

// The answer may have come while nobody could look. So a probe has as long again as its timeout was
// overlooked, though only once: on a machine that is always late, targets fail, too.
bool engine::gets_more_time(runner& one, std::uint64_t now_us) {
  const std::uint64_t overlooked_us = now_us - one.due_ns / ns_per_us;
  if (overlooked_us < late_us || one.has_more_time) {
    return false;
  }
  one.has_more_time = true;
  put_off(one, now_us + std::min(overlooked_us, one.config.timeout_ms * std::uint64_t{1000}));
  return true;
}

void engine::run_due() {
  const std::uint64_t now_ns = hooks_.now_us() * ns_per_us;
  for (timer_node* first = due_.first(); first != nullptr && first->due_ns <= now_ns;
       first = due_.first()) {
    auto& one = static_cast<runner&>(*first);
    if (one.running == nullptr) {
      start(one);
    } else if (!gets_more_time(one, now_ns / ns_per_us)) {
      finish(one, one.running->late_code());
    }
  }
}

std::optional<std::uint64_t> engine::next_due_us() const noexcept {
  const timer_node* const first = due_.first();
  return first == nullptr ? std::nullopt : std::optional(first->due_ns / ns_per_us);
}

void engine::beat() noexcept {
  if (table_ != nullptr) {
    table_->beat();
  }
}

}  // namespace ot::qmond
