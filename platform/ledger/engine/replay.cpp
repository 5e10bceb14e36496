// The replay of what is stored when the service starts. The stored items are first listed and put
// in order, then read and applied one by one, so that at no time all values are in memory. The
// store is a file that anybody with the right may have changed: every item is looked at as a
// proposed one is, and what is wrong with one of them concerns no other.
#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "platform/err_string.h"
#include "platform/ledger/engine/engine.h"
#include "platform/ledger/engine/handling.h"
#include "platform/ledger_status.h"

namespace ot {
namespace {

constexpr std::size_t items_a_page = 64;

struct replayed_item {
  std::string stored;       // where it is
  std::string path;         // what it is applied as
  std::size_t owner = 0;    // characters of the path
  std::uint64_t first = 0;  // of the owner
  ledger_turn turn = ledger_turn::usual;
  std::uint64_t sequence = 0;
};

// The path of an item whether it is retired or not.
std::string_view configured_path(std::string_view stored) noexcept {
  return stored.substr(stored.starts_with(ledger_retired_root) ? ledger_retired_root.size() : 0);
}

// For a line of the log.
std::string printable(std::string path) {
  std::replace_if(
      path.begin(), path.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; },
      '?');
  return path;
}

class replay_run {
 public:
  replay_run(const ledger_trees& trees, ledger_store& store,
             ledger_environment& environment) noexcept
      : trees_(trees), store_(store), environment_(environment) {}

  // Lists what is stored below `root`. 0 or a status code.
  int list(std::string_view root);
  void sort();
  // The number of items that were skipped, here and by `list`.
  int apply();

 private:
  void add(const ledger_stored& stored);
  void skip(const std::string& path, int code, const std::string& why);
  void apply_item(const replayed_item& item);

  const ledger_trees& trees_;
  ledger_store& store_;
  ledger_environment& environment_;
  std::vector<replayed_item> items_;
  int skipped_ = 0;
};

void replay_run::skip(const std::string& path, int code, const std::string& why) {
  ++skipped_;
  environment_.log("replaying " + printable(path) + " failed: " + err_string(code) +
                   (why.empty() ? "" : " (" + why + ")"));
}

void replay_run::add(const ledger_stored& stored) {
  if (stored.missing) {
    skip(stored.path, ledger_storage_failure, "it is listed, but missing or damaged");
    return;
  }
  ledger_match match;
  std::string fault;
  std::string path{configured_path(stored.path)};
  if (const int status = trees_.match(path, match, fault); status != status_ok) {
    skip(stored.path, status, fault);
    return;
  }
  items_.push_back(
      {stored.path, std::move(path), match.owner, stored.first, match.row->turn, stored.sequence});
}

int replay_run::list(std::string_view root) {
  std::uint64_t after = 0;
  for (bool more = true; more;) {
    std::vector<ledger_stored> page;
    if (const int status = store_.page_in_order(after, items_a_page, page); status != status_ok) {
      return status;
    }
    for (const ledger_stored& stored : page) {
      if (configured_path(stored.path).starts_with(root)) {
        add(stored);
      }
    }
    more = page.size() == items_a_page;
    after = more ? page.back().sequence : after;
  }
  return status_ok;
}

// An owner's place is that of its earliest item.
void replay_run::sort() {
  const auto owner_of = [](const replayed_item& item) {
    return std::string_view{item.path}.substr(0, item.owner);
  };
  std::unordered_map<std::string_view, std::uint64_t> places;
  for (const replayed_item& item : items_) {
    const auto [place, added] = places.try_emplace(owner_of(item), item.first);
    place->second = std::min(place->second, item.first);
  }
  for (replayed_item& item : items_) {
    item.first = places[owner_of(item)];
  }
  places.clear();  // its keys are views of what is moved now
  std::sort(items_.begin(), items_.end(), [](const replayed_item& a, const replayed_item& b) {
    return std::tie(a.first, a.turn, a.sequence) < std::tie(b.first, b.turn, b.sequence);
  });
}

void replay_run::apply_item(const replayed_item& item) {
  ledger_value value;
  ledger_match match;
  std::string fault;
  int status = store_.get(item.stored, value);
  if (status == status_ok) {
    status = trees_.match(item.path, match, fault);
  }
  if (status == status_ok) {
    fault = ledger_row_value_fault(*match.row, value.kind, value.bytes());
    status = fault.empty() ? status_ok : ledger_wrong_kind;
  }
  if (status == status_ok) {
    status = ledger_row_apply(environment_, *match.row,
                              {.event = ledger_event_create,
                               .fields = match.fields,
                               .new_value = &value,
                               .replayed = true});
  }
  if (status != status_ok) {
    skip(item.stored, status, fault);
  }
}

int replay_run::apply() {
  for (const replayed_item& item : items_) {
    apply_item(item);
  }
  return skipped_;
}

}  // namespace

int ledger_engine::replay(std::string_view root) {
  if (busy_) {
    return -1;
  }
  const ledger_while_set busy{busy_, true};
  replay_run run{trees_, configuration_, environment_};
  if (run.list(root) != status_ok) {
    return -1;
  }
  run.sort();
  return run.apply();
}

}  // namespace ot
