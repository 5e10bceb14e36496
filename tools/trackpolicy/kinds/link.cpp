// An interface that is set administratively down while the track is down, and up again after: the
// access side follows the uplink. A track that is unknown changes nothing: to cut off what works
// because nobody knows better would do more harm than to let it go on.
#include <array>

#include "tools/trackpolicy/kinds/keeping.h"

namespace ot::trackpolicy {
namespace {

class link_reaction final : public keeping_reaction {
 public:
  link_reaction(const policy& of, host& on) : keeping_reaction(of, on) { ask(); }

  void remove() override { net().forget_link(of().name); }

  [[nodiscard]] report status() const override {
    const outcome now = net().link_outcome(of().name);
    report made = report_of(now);
    made.doing = now.stands;
    return made;
  }

 private:
  void ask() override {
    constexpr std::array wishes{wish::keep, wish::yes, wish::no};  // by state
    net().keep_link(of().name, of().track, of().interface, wishes[index_of(state())]);
  }
};

std::string access_value(const toml::node& node) {
  std::string name = interface_value(node);
  if (name == "lo") {
    throw settings::value_error("is the loopback interface, on which the router itself depends");
  }
  return name;
}

constexpr std::array own_keys{
    key_row{"interface", settings::take_value<&policy::interface, access_value>,
            settings::key_required},
};

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<link_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  if (state == track_state::unknown) {
    return "does nothing: " + of.interface + " stays as it is";
  }
  return state == track_state::down
             ? "sets " + of.interface + " down, unless it is down already"
             : "sets " + of.interface + " up again, if this policy has set it down";
}

}  // namespace

constinit const kind link_kind{
    .id = kind_id::link,
    .word = "link",
    .keys = own_keys,
    .check = nullptr,
    .make = make,
    .describe = describe,
};

}  // namespace ot::trackpolicy
