// The registered record types. A descriptor is parsed once, here; its two strings must say the
// same, fit the C++ struct and agree with the types that it contains, so that encoding and decoding
// can trust the program.
#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "platform/brec.h"
#include "platform/records/program.h"
#include "platform/records/wire.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::size_t most_name = 127;

struct registry {
  std::vector<std::unique_ptr<brec_compiled>> types;
  std::optional<std::size_t> bracket;  // how many there were at the start of the open bracket
};

registry& the_registry() noexcept {
  static registry instance;
  return instance;
}

const brec_compiled* find_by_name(std::string_view name) noexcept {
  for (const auto& type : the_registry().types) {
    if (type->descriptor->type_name == name) return type.get();
  }
  return nullptr;
}

bool name_is_proper(const char* name) noexcept {
  if (name == nullptr) return false;
  const std::string_view text = name;
  return text.size() <= most_name && text.size() > 2 && text.ends_with("__");
}

// A registered type must be written in the containing strings exactly as in its own.
bool agrees_with_nested(const brec_descriptor& descriptor, const brec_nested& nested) noexcept {
  const brec_compiled* other = nested.type_name == nullptr ? nullptr  //
                                                           : find_by_name(nested.type_name);
  if (other == nullptr || other->program.types.front().number != nested.number) return false;
  const auto same = [&](const char* ours, const char* theirs) {
    const std::string_view definition = brec_definition(theirs, nested.number);
    return !definition.empty() && definition == brec_definition(ours, nested.number);
  };
  return same(descriptor.full, other->descriptor->full) &&
         same(descriptor.brief, other->descriptor->brief);
}

bool compile(const brec_descriptor& descriptor, brec_compiled& compiled) {
  if (!name_is_proper(descriptor.type_name) || descriptor.full == nullptr ||
      descriptor.brief == nullptr) {
    return false;
  }
  brec_program brief;
  if (!brec_parse(descriptor.full, brec_form::full, &compiled.program) ||
      !brec_parse(descriptor.brief, brec_form::brief, &brief) ||
      compiled.program.types != brief.types) {
    return false;
  }
  if (compiled.program.types.front().size != descriptor.size) return false;
  return std::all_of(
      descriptor.nested.begin(), descriptor.nested.end(),
      [&](const brec_nested& nested) { return agrees_with_nested(descriptor, nested); });
}

}  // namespace

int brec_register_start() noexcept {
  registry& all = the_registry();
  if (all.bracket.has_value()) return invalid_argument;
  all.bracket = all.types.size();
  return status_ok;
}

int brec_register(const brec_descriptor& descriptor) noexcept {
  registry& all = the_registry();
  if (!all.bracket.has_value()) return invalid_argument;
  try {
    auto compiled = std::make_unique<brec_compiled>();
    compiled->descriptor = &descriptor;
    if (!compile(descriptor, *compiled)) return record_bad_descriptor;
    if (find_by_name(descriptor.type_name) != nullptr) return duplicate_key;
    compiled->heading = brec_heading(descriptor);
    all.types.push_back(std::move(compiled));
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  return status_ok;
}

int brec_register_end() noexcept {
  registry& all = the_registry();
  if (!all.bracket.has_value()) return invalid_argument;
  all.bracket.reset();
  return status_ok;
}

void brec_register_abort() noexcept {
  registry& all = the_registry();
  if (!all.bracket.has_value()) return;
  all.types.erase(all.types.begin() + static_cast<std::ptrdiff_t>(*all.bracket), all.types.end());
  all.bracket.reset();
}

void brec_forget_all() noexcept {
  the_registry() = registry{};
}

const brec_compiled* brec_find(const brec_descriptor& descriptor) noexcept {
  for (const auto& type : the_registry().types) {
    if (type->descriptor == &descriptor) return type.get();
  }
  return nullptr;
}

}  // namespace ot
