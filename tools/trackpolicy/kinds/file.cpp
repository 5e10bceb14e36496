// The state as a text in a file, which is replaced as a whole: who reads it finds the old text or
// the new one. When the service is gone for longer than `grace`, nobody knows the state, and the
// file says what it says while the track is down.
#include <array>

#include "tools/trackpolicy/kinds/kinds.h"

namespace ot::trackpolicy {
namespace {

constexpr std::uint32_t grace_max = 24 * 3600 * 1000;
constexpr std::uint64_t retry_us = 5'000'000;

class file_reaction : public reaction {
 public:
  file_reaction(const policy& of, host& on) : policy_(of), host_(on) {}

  void see(const situation& now) override {
    gone_ = false;
    write(now.state);
  }

  void service_gone() override {
    if (!gone_) {
      gone_ = true;
      gone_since_us_ = host_.now_us();
      set_due(gone_since_us_ + grace_us());
    }
  }

  void due() override { write(gone_ ? track_state::down : state_); }

  // The engine tells the state anew, if it is known.
  void change(const policy& to) override {
    policy_ = to;
    if (gone_) {
      set_due(gone_since_us_ + grace_us());
    }
  }

  [[nodiscard]] report status() const override {
    report made = report_;
    made.doing = written_.empty()
                     ? "nothing written yet"
                     : policy_.path + " says " + written_.substr(0, written_.size() - 1);
    return made;
  }

 private:
  [[nodiscard]] std::uint64_t grace_us() const noexcept {
    return std::uint64_t{policy_.grace_ms} * 1000;
  }

  void write(track_state state) {
    state_ = state;
    set_due(never);
    const std::string content = policy_.text[index_of(state)] + '\n';
    if (!host_.file_has(policy_.path, content)) {
      const std::string wrong = host_.write_file(policy_.path, content);
      if (!wrong.empty()) {
        ++report_.failures;
        if (wrong != report_.problem) {
          host_.log(policy_, wrong);
        }
        report_.problem = wrong;
        set_due(host_.now_us() + retry_us);
        return;
      }
      ++report_.runs;
    }
    report_.problem.clear();
    written_ = content;
  }

  policy policy_;
  host& host_;
  track_state state_ = track_state::unknown;
  bool gone_ = false;
  std::uint64_t gone_since_us_ = 0;
  std::string written_;
  report report_;
};

std::string path_value(const toml::node& node) {
  std::string path = settings::text_value(node);
  if (!path.starts_with('/') || path.ends_with('/')) {
    throw settings::value_error("must be the absolute path of a file");
  }
  return path;
}

// Keepalived reads a number, others a word; what looks like a number may be written as one.
template <track_state state>
void take_text(const toml::node& node, policy& to) {
  if (const toml::value<std::int64_t>* const number = node.as_integer()) {
    to.text[index_of(state)] = std::to_string(number->get());
  } else if (node.is_string()) {
    to.text[index_of(state)] = settings::text_value(node);
  } else {
    throw settings::value_error("must be a text in quotes or a whole number");
  }
  if (state == track_state::down) {
    to.text[index_of(track_state::unknown)] = to.text[index_of(state)];
  }
}

constexpr std::array own_keys{
    key_row{"path", settings::take_value<&policy::path, path_value>, settings::key_required},
    key_row{"text_up", take_text<track_state::up>, settings::key_common},
    key_row{"text_down", take_text<track_state::down>, settings::key_common},
    key_row{"text_unknown", take_text<track_state::unknown>, settings::key_common},
    key_row{"grace",
            settings::take_value<&policy::grace_ms, settings::duration_value, 0, grace_max>,
            settings::key_common},
};

std::unique_ptr<reaction> make(const policy& of, host& on) {
  return std::make_unique<file_reaction>(of, on);
}

std::string describe(const policy& of, track_state state) {
  return "writes \"" + of.text[index_of(state)] + "\" to " + of.path;
}

}  // namespace

constinit const kind file_kind{
    .id = kind_id::file,
    .word = "file",
    .keys = own_keys,
    .check = nullptr,
    .make = make,
    .describe = describe,
};

}  // namespace ot::trackpolicy
