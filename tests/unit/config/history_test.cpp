// Random histories of configuration, as any client of the ledger may write them: items of every
// kind in any order, in one commit or many, tracks that change their kind in stages, refusals of
// the verifiers and of the store. Two things hold at any point. What is refused changes nothing:
// not what is stored, not a track, and nobody hears of it. And a service that is started again has
// the states, limits and members that it had, and reports nothing.
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <vector>

#include "core/track_kind.h"
#include "lists/members.h"
#include "platform/ipv4.h"
#include "platform/ledger_status.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "state/list_evaluation.h"
#include "tests/support/seeds.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

using namespace std::chrono_literals;
using items = std::vector<ledger_proposal>;

#ifdef OT_SOAK
constexpr unsigned histories = 3000;
#else
constexpr unsigned histories = 60;
#endif
constexpr unsigned steps = 60;
constexpr unsigned names = 7;
constexpr const char* interfaces[] = {"e0", "e1", "e2"};
constexpr const char* followed[] = {"e0", "e1", "e2", "none0"};
constexpr const char* networks[] = {"10.1.0.0", "10.2.0.0"};

class history : public service_fixture {
 protected:
  void begin(unsigned seed) {
    random_.seed(seed);
    log_.clear();
    stop();
    field::reset();
    ledger_control_reset();
    for (const char* name : interfaces) {
      field::interface_added(name, chance(2));
    }
    field::vrf_added("red", 7, 100);
    for (std::uint32_t operation = 1; operation <= 4; ++operation) {
      field::probe_result(operation, below(3));
    }
    ASSERT_EQ(start(), 0);
  }

  unsigned below(unsigned most) { return static_cast<unsigned>(random_() % most); }
  bool chance(unsigned in) { return below(in) == 0; }
  template <typename T>
  void shuffle(std::vector<T>& all) {
    std::shuffle(all.begin(), all.end(), random_);
  }

  // --- What there is -----------------------------------------------------------------------------

  // Everything that is configured, and everything that is stored: path and bytes.
  static std::vector<std::string> configured() { return items_below("cfg/"); }
  static std::vector<std::string> stored() { return items_below(""); }
  static std::vector<std::string> items_below(const char* root) {
    std::vector<std::string> lines;
    ledger_item_walk(
        ledger_get_default_conn(), root,
        [](void* context, std::string_view path, const ledger_value& value) {
          std::string line{path};
          for (const std::byte byte : value.bytes()) {
            line += " " + std::to_string(static_cast<unsigned>(byte));
          }
          static_cast<std::vector<std::string>*>(context)->push_back(line);
          return true;
        },
        &lines);
    return lines;
  }

  // Every track that follows something, as its readers see it. A list that has lost its members and
  // has no limits is only a name, as is a route without its address.
  static std::set<std::string> tracks() {
    std::set<std::string> lines;
    for (const auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      const bool is_empty = is_list_type(track->type) && track->object.list.members == nullptr &&
                            track->threshold_up == 0;
      const bool is_nowhere =
          track->type == track_type::route && track->object.route.ip_configured == 0;
      if (track->type != track_type::none && !is_empty && !is_nowhere) {
        lines.insert(describe(*track));
      }
    }
    return lines;
  }

  // What is published knows up and not up.
  static const char* word(track_state state) { return state == track_state::up ? "up" : "down"; }

  static std::string describe(const ot_track& track) {
    const bool is_probe = track.type == track_type::probe;
    char text[256];
    std::snprintf(text, sizeof text, "%s type %u %s source %s limits %u %u delays %u %u of",
                  track.name.c_str(), static_cast<unsigned>(track.type), word(track.state),
                  word(track.source_state), track.threshold_up, track.threshold_down,
                  is_probe ? 0 : track.delay_up, is_probe ? 0 : track.delay_down);
    return text + object(track);
  }

  static std::string object(const ot_track& track) {
    switch (track.type) {
      case track_type::interface:
        return std::string{" "} + track.object.interface.name.c_str();
      case track_type::route:
        return " " + std::to_string(track.object.route.prefix) + "/" +
               std::to_string(track.object.route.mask) + " " + track.object.route.vrf.c_str() +
               (track.object.route.ip_configured != 0 ? " tied" : "");
      case track_type::probe:
        return " " + std::to_string(track.object.probe.operation_id);
      default:
        break;
    }
    std::string members;
    for (const list_member* member = track.object.list.members; member != nullptr;
         member = member->next) {
      members += std::string{" "} + member->name.c_str() + "=" + std::to_string(member->value);
    }
    return members;
  }

  // --- What an operator does ---------------------------------------------------------------------

  static std::string name_of(unsigned index) { return "t" + std::to_string(index); }
  static std::string list_path(unsigned type, const std::string& item) {
    return "type/list/0x" + std::to_string(type) + "/" + item;
  }

  ledger_proposal member(const std::string& name, unsigned index, unsigned type) {
    // Below its own place, so that there are no cycles; sometimes itself, which is refused.
    const unsigned other = chance(20) ? index : below(index + 1);
    return set_number(track_path(name, list_path(type, "object/" + name_of(other) + "/a")),
                      below(3));
  }
  ledger_proposal limits(const std::string& name, unsigned type) {
    char item[64];
    std::snprintf(item, sizeof item, "thld_limits/val_up/0x%x/val_dn", 1 + below(4));
    return set_number(track_path(name, list_path(type, item)), below(3));
  }
  ledger_proposal address(const std::string& name) {
    const std::uint32_t mask = ipv4_prefixlen2mask(chance(8) ? 24 : 16);
    return set_tuple(track_path(name, "type/route/0x2/info/ip_address"),
                     {below(2) == 0 ? 0x0000010aU : 0x0000020aU, chance(20) ? 0x00ff00ffU : mask});
  }
  ledger_proposal vrf(const std::string& name) {
    constexpr const char* vrfs[] = {"red", "default", "blue"};
    return set_text(track_path(name, "type/route/0x2/info/vrf"), vrfs[below(3)]);
  }

  // The items that make a track, in a sensible order.
  items new_track(unsigned index) {
    const std::string name = name_of(index);
    items all = {set_number(track_path(name, "a"), 1)};
    const unsigned kind = below(7);
    if (kind == 0) {
      all.push_back(set_number(track_path(name, "type/interface/0x1/a"), 1));
      all.push_back(
          set_text(track_path(name, "type/interface/0x1/info/interface"), followed[below(4)]));
    } else if (kind == 1) {
      all.push_back(set_number(track_path(name, "type/route/0x2/a"), 1));
      all.push_back(address(name));
      if (chance(2)) {
        all.push_back(vrf(name));
      }
    } else if (kind == 2) {
      all.push_back(set_number(track_path(name, "type/prb/0x5/op_id"), 1 + below(4)));
    } else {
      constexpr unsigned types[] = {3, 4, 7, 8};
      const unsigned type = types[kind - 3];
      all.push_back(set_number(track_path(name, list_path(type, "a")), 1));
      if (type >= 7) {
        all.push_back(limits(name, type));
      }
      for (unsigned count = below(4); count > 0; --count) {
        add_once(all, member(name, index, type));
      }
    }
    add_delays(all, name);
    return all;
  }

  static void add_once(items& all, ledger_proposal item) {
    if (std::none_of(all.begin(), all.end(),
                     [&](const ledger_proposal& each) { return each.path == item.path; })) {
      all.push_back(std::move(item));
    }
  }

  void add_delays(items& all, const std::string& name) {
    for (const char* item : {"delay_up", "delay_down"}) {
      if (chance(3)) {
        all.push_back(set_number(track_path(name, item), 1 + below(4)));
      }
    }
  }

  // What is configured of a track, as paths.
  static std::vector<std::string> paths_of(const std::string& name) {
    std::vector<std::string> paths;
    ledger_item_walk(
        ledger_get_default_conn(), track_path(name, "").substr(1).c_str(),
        [](void* context, std::string_view path, const ledger_value&) {
          static_cast<std::vector<std::string>*>(context)->push_back("/" + std::string{path});
          return true;
        },
        &paths);
    return paths;
  }

  void create(unsigned index) {
    items all = new_track(index);
    if (chance(3)) {
      shuffle(all);
    }
    if (chance(2)) {
      attempt(all);
      return;
    }
    // Without an existence a track could not be deleted, and not change its kind.
    if (attempt({set_number(track_path(name_of(index), "a"), 1)})) {
      for (const ledger_proposal& item : all) {
        attempt({item});
      }
    }
  }

  void retype(unsigned index) {
    items all;
    for (const std::string& path : paths_of(name_of(index))) {
      all.push_back(remove_item(path));
    }
    for (ledger_proposal& item : new_track(index)) {
      item.stage = 1;
      all.push_back(std::move(item));
    }
    attempt(all);
  }

  // With its existence goes what is left of it.
  void remove(unsigned index) {
    const std::string existence = track_path(name_of(index), "a");
    items all;
    for (const std::string& path : paths_of(name_of(index))) {
      if (path == existence || chance(2)) {
        all.push_back(remove_item(path));
      }
    }
    attempt(all);
  }

  // Changes one item of a track in its place, adds one or takes one away.
  void change(unsigned index) {
    const std::string name = name_of(index);
    if (!hash_db_get_track_item(name.c_str())) {
      return;
    }
    const auto type = static_cast<unsigned>(track(name).type);
    items all;
    if (chance(3)) {
      add_delays(all, name);
    } else if (type == 1) {
      all.push_back(
          set_text(track_path(name, "type/interface/0x1/info/interface"), followed[below(4)]));
    } else if (type == 2) {
      all.push_back(chance(2) ? address(name) : vrf(name));
    } else if (type >= 7 && chance(2) && type != 9) {
      all.push_back(limits(name, type));
    } else if (type != 5 && type != 6 && type != 9) {
      all.push_back(member(name, index, type));
    }
    attempt(all);
  }

  // Takes an item away that leaves the track its type. A probe's delay that is taken away becomes
  // 2 seconds, for as long as the service runs: those stay.
  void take_away(unsigned index) {
    std::vector<std::string> paths = paths_of(name_of(index));
    if (std::any_of(paths.begin(), paths.end(), [](const std::string& path) {
          return path.find("op_id") != std::string::npos;
        })) {
      return;
    }
    std::erase_if(paths, [](const std::string& path) {
      return path.find("delay") == std::string::npos && path.find("object") == std::string::npos &&
             path.find("vrf") == std::string::npos && path.find("val_dn") == std::string::npos;
    });
    if (!paths.empty()) {
      attempt({remove_item(paths[below(static_cast<unsigned>(paths.size()))])});
    }
  }

  // Commits; what is refused must have changed nothing. True when it was not.
  bool attempt(const items& changes) {
    if (chance(15)) {
      ledger_control_fail_next_store(ledger_full);
    }
    field::run_pending();
    const auto stored_before = stored();
    const auto tracks_before = tracks();
    const std::uint64_t events = field::events_published();
    field::take_messages();
    take_notifications();
    const int status = commit(changes);
    note(changes, status);
    if (status == 0 || (!refusals.empty() && refusals.front().applied)) {
      return true;
    }
    ++refused_;
    EXPECT_EQ(stored(), stored_before);
    EXPECT_EQ(tracks(), tracks_before);
    EXPECT_EQ(field::events_published(), events);
    EXPECT_THAT(take_notifications(), testing::IsEmpty());
    return false;
  }

  // A history that fails is printed.
  void note(const items& changes, int status) {
    for (const ledger_proposal& change : changes) {
      log_ += std::to_string(change.stage) + (change.remove ? " - " : " + ") + change.path;
      for (const std::byte byte : change.value) {
        log_ += " " + std::to_string(static_cast<unsigned>(byte));
      }
      log_ += "\n";
    }
    log_ += "= " + std::to_string(status) + "\n";
  }

  void disturb() {
    const unsigned which = below(3);
    if (which == 0) {
      const char* name = interfaces[below(3)];
      chance(2) ? field::link_up(name) : field::link_down(name);
    } else if (which == 1) {
      const char* network = networks[below(2)];
      const std::uint32_t table = chance(2) ? field::main_table : 100;
      chance(2) ? field::route_added(network, 16, "e0", table)
                : field::route_removed(network, 16, table);
    } else {
      field::probe_result(1 + below(4), below(3));
    }
    field::advance(below(3000) * 1ms);
    log_ += "disturbed " + std::to_string(which) + testing::PrintToString(tracks()) + "\n";
  }

  void step() {
    const unsigned index = below(names);
    const bool there = !paths_of(name_of(index)).empty();
    const unsigned what = below(10);
    if (!there) {
      create(index);
    } else if (what < 3) {
      change(index);
    } else if (what == 3) {
      take_away(index);
    } else if (what == 4) {
      retype(index);
    } else if (what == 5) {
      remove(index);
    } else {
      disturb();
    }
  }

  // A start that nothing changed before: the same tracks, and no state is published that was not
  // (TRACK_INFO tells of each). A probe whose delays differ in being none repeats what it published
  // with every look at its operation, before as after.
  void restart_silently() {
    // Threshold lists look at what their members report, but only when something was published; a
    // start always looks.
    field::advance(20s);
    object_tracking_calc_tracks_state();
    field::advance(20s);
    const auto before = tracks();
    const auto stored_before = configured();
    stop();
    field::take_messages();
    ASSERT_EQ(start(2), 0);
    field::advance(10s);
    SCOPED_TRACE(log_);
    EXPECT_EQ(tracks(), before);
    EXPECT_EQ(configured(), stored_before);
    for (const std::string& line : field::take_messages()) {
      // A route without its address may have been published or not, by the order of its items.
      EXPECT_TRUE(std::none_of(before.begin(), before.end(), [&](const std::string& track) {
        const std::string name = track.substr(0, track.find(' '));
        return line.find(" " + name + " ") != std::string::npos;
      })) << line;
    }
  }

  unsigned refused_ = 0;
  std::string log_;

 private:
  std::mt19937 random_;
};

TEST_F(history, of_any_kind_is_kept_by_a_restart_and_by_refusals) {
  const std::vector<unsigned> tried = seeds(histories);
  for (const unsigned seed : tried) {
    SCOPED_TRACE(shown(seed));
    begin(seed);
    for (unsigned count = 1; count <= steps && !HasFailure(); ++count) {
      step();
      if (count % (steps / 3) == 0) {
        restart_silently();
      }
    }
    ASSERT_FALSE(HasFailure());
  }
  if (tried.size() == histories) {
    EXPECT_GT(refused_, histories / 10);
  }
}

}  // namespace
}  // namespace ot::test
