// An interface that is set administratively down while the track is down, and up again after: the
// access side follows the uplink. A track that is unknown changes nothing: to cut off what works
// because nobody knows better would do more harm than to let it go on.
#include <array>

#include "tools/trackpolicy/kernel/network.h"
#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

constexpr std::size_t name_max = 15;

class link_reaction : public reaction {
 public:
  link_reaction(const policy& of, host& on) : policy_(of), host_(on) { ask(); }

  void see(const situation& now) override {
    state_ = now.state;
    ask();
  }
  void due() override {}
  void change(const policy& to) override {
    policy_ = to;
    ask();
  }
  void remove() override { host_.net().forget_link(policy_.name); }

  [[nodiscard]] report status() const override {
    const outcome now = host_.net().link_outcome(policy_.name);
    report made;
    made.doing = now.stands;
    made.problem = now.problem;
    made.runs = now.changes;
    made.failures = now.refusals;
    return made;
  }

 private:
  void ask() {
    constexpr std::array wishes{wish::keep, wish::yes, wish::no};  // by state
    host_.net().keep_link(policy_.name, policy_.track, policy_.interface, wishes[index_of(state_)]);
  }

  policy policy_;
  host& host_;
  track_state state_ = track_state::unknown;
};

std::string interface_value(const toml::node& node) {
  std::string name = settings::text_value(node);
  if (name.size() > name_max || name.find_first_of(" \t\n/") != std::string::npos) {
    throw settings::value_error("must be the name of an interface, of at most 15 characters");
  }
  if (name == "lo") {
    throw settings::value_error("is the loopback interface, on which the router itself depends");
  }
  return name;
}

constexpr std::array own_keys{
    key_row{"interface", settings::take_value<&policy::interface, interface_value>,
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
