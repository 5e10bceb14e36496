// Holds the parts of the in-memory router and the failures that tests have ordered.
#include "platform/memory/world.h"

#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"

namespace ot {
namespace {

struct world {
  // Recursive: a part may need another one while it is made or destroyed.
  std::recursive_mutex mutex;
  std::vector<std::pair<const std::type_info*, std::shared_ptr<void>>> parts;
};

world& the_world() {
  static world instance;
  return instance;
}

struct order {
  std::string operation;
  unsigned let_through;
  ordered_failure failure;
};

struct failure_orders {
  std::mutex mutex;
  std::deque<order> orders;
};

struct introductions {
  std::mutex mutex;
  bool wanted = false;
  std::vector<std::string> lines;
};

}  // namespace

void* find_world_part(const std::type_info& type, world_part_maker make) {
  alloc_faults_paused pause;
  world& all = the_world();
  const std::scoped_lock lock{all.mutex};
  for (const auto& [known, part] : all.parts) {
    if (*known == type) {
      return part.get();
    }
  }
  std::shared_ptr<void> part = make();
  all.parts.emplace_back(&type, part);
  return part.get();
}

void world_end() {
  alloc_faults_paused pause;
  world& all = the_world();
  const std::scoped_lock lock{all.mutex};
  while (!all.parts.empty()) {
    // Destroyed outside the vector: its destructor may look for other parts.
    const auto last = std::move(all.parts.back());
    all.parts.pop_back();
  }
}

std::optional<ordered_failure> take_failure(std::string_view operation) noexcept {
  alloc_faults_paused pause;
  auto& [mutex, orders] = world_part<failure_orders>();
  const std::scoped_lock lock{mutex};
  for (auto it = orders.begin(); it != orders.end(); ++it) {
    if (it->operation != operation) {
      continue;
    }
    if (it->let_through > 0) {
      --it->let_through;
      return std::nullopt;
    }
    const ordered_failure failure = it->failure;
    orders.erase(it);
    return failure;
  }
  return std::nullopt;
}

int take_failure_code(std::string_view operation) noexcept {
  const auto failure = take_failure(operation);
  return failure ? failure->result : 0;
}

void note_introduction(std::string_view operation, std::initializer_list<std::string_view> said) {
  auto& [mutex, wanted, lines] = world_part<introductions>();
  const std::scoped_lock lock{mutex};
  if (!wanted) {
    return;
  }
  std::string line{operation};
  for (const std::string_view word : said) {
    line.append(" ").append(word);
  }
  lines.push_back(std::move(line));
}

namespace field {

std::vector<std::string> take_introductions() {
  auto& [mutex, wanted, lines] = world_part<introductions>();
  const std::scoped_lock lock{mutex};
  wanted = true;
  return std::exchange(lines, {});
}

void fail_next(std::string_view operation, int code, int item_status, unsigned let_through) {
  auto& [mutex, orders] = world_part<failure_orders>();
  const std::scoped_lock lock{mutex};
  orders.push_back({std::string{operation}, let_through, {code, item_status}});
}

std::vector<std::string> failures_left() {
  auto& [mutex, orders] = world_part<failure_orders>();
  const std::scoped_lock lock{mutex};
  std::vector<std::string> names;
  names.reserve(orders.size());
  for (const order& left : orders) {
    names.push_back(left.operation);
  }
  return names;
}

}  // namespace field
}  // namespace ot
