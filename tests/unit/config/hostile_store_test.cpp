// Stored configuration that no client could have committed: damaged, made by hand, or left by an
// older release. Whatever it is, the service starts; what it can apply it applies, the rest it
// names and skips, and every track that is there can be deleted.
#include <random>

#include "core/track_kind.h"
#include "platform/memory/controls.h"
#include "platform/memory/ledger_controls.h"
#include "tests/support/seeds.h"
#include "tests/unit/service_fixture.h"

namespace ot::test {
namespace {

#ifdef OT_SOAK
constexpr unsigned rounds = 20'000;
#else
constexpr unsigned rounds = 200;
#endif
constexpr unsigned items_a_round = 12;

class hostile_store : public service_fixture {
 protected:
  unsigned below(unsigned most) { return static_cast<unsigned>(random_() % most); }
  bool chance(unsigned in) { return below(in) == 0; }

  std::string name() {
    switch (below(8)) {
      case 0:
        return std::string(1 + below(60), 'n');
      case 1:
        return {static_cast<char>(1 + below(255))};
      default:
        return std::string{"t"} + std::to_string(below(4));
    }
  }
  std::string number() {
    constexpr const char* numbers[] = {"0x1", "0x2", "0x3", "0x4", "0x5", "0x7",        "0x8",
                                       "0x9", "0x0", "0x6", "0xa", "7",   "0xffffffff", "0x"};
    return numbers[below(std::size(numbers))];
  }
  // A path of the tree, sometimes with an element too many, too few or another one.
  std::string path() {
    constexpr std::string_view leaves[] = {
        "a",
        "delay_up",
        "delay_down",
        "type/list/#/a",
        "type/list/#/object/*/a",
        "type/list/#/thld_limits/val_up/#/val_dn",
        "type/interface/#/a",
        "type/interface/#/info/interface",
        "type/route/#/a",
        "type/route/#/info/ip_address",
        "type/route/#/info/vrf",
        "type/prb/#/op_id",
        "type/bfdprb/#/rate/#/debounce_count/#/Interface/*/destaddress"};
    std::string made = "/cfg/gl/object_tracking/track/" + name() + "/";
    for (const char character : leaves[below(std::size(leaves))]) {
      made += character == '#' ? number() : character == '*' ? name() : std::string{character};
    }
    if (chance(20)) {
      made.resize(made.size() - below(8));
    }
    if (chance(20)) {
      made += "/" + name();
    }
    return made;
  }
  void put() {
    constexpr ledger_kind kinds[] = {ledger_kind::u32, ledger_kind::text, ledger_kind::tuple,
                                     ledger_kind::record, static_cast<ledger_kind>(99)};
    constexpr std::size_t lengths[] = {4, 4, 4, 8, 8, 0, 1, 12, 31, 32, 64, 4096, 5000};
    const ledger_kind kind = kinds[chance(10) ? below(5) : below(3)];
    std::vector<std::byte> value(lengths[below(chance(4) ? 13 : 5)]);
    for (std::byte& byte : value) {
      byte = static_cast<std::byte>(chance(3) ? below(256) : 'e');
    }
    ledger_control_put(path(), kind, value);
  }

  // All names of tracks that there are.
  static std::vector<std::string> tracks() {
    std::vector<std::string> names;
    for (const auto* track = hash_db_first_data<ot_track>(tracks_table); track != nullptr;
         track = hash_db_next_data<ot_track>(tracks_table)) {
      names.emplace_back(track->name.c_str());
    }
    return names;
  }

  std::mt19937 random_;
};

TEST_F(hostile_store, never_keeps_the_service_from_its_work) {
  for (const unsigned seed : seeds(rounds)) {
    SCOPED_TRACE(shown(seed));
    random_.seed(seed);
    stop();
    field::reset();
    ledger_control_reset();
    field::interface_added("eeee");
    for (unsigned i = 0; i < items_a_round; ++i) {
      put();
    }
    ASSERT_EQ(start(1 + below(2)), 0);
    field::advance(std::chrono::seconds{3});
    for (const std::string& name : tracks()) {
      // One that was never said to exist is now.
      commit({set_number(track_path(name, "a"), 1)});
      EXPECT_EQ(commit({remove_item(track_path(name, "a"))}), 0) << name;
    }
    EXPECT_THAT(tracks(), testing::IsEmpty());
    ASSERT_FALSE(HasFailure());
  }
}

}  // namespace
}  // namespace ot::test
