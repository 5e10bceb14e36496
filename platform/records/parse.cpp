// The reader of field strings: recursive descent, one function a rule of the notation. The full and
// the brief form are one grammar; the full form has names where the brief one has nothing, and the
// brief form ends a type in place with a dot.
//
// A reference to a type is kept as its number until all types are read, since a record may name a
// type before it is defined. A pointer to a plain field gets a small unnamed type of its own, so
// that every pointer leads to a type.
#include "platform/records/program.h"

#include <algorithm>
#include <iterator>

namespace ot {
namespace {

constexpr std::uint32_t most_number = 9999;
constexpr std::uint32_t most_text_width = 65535;
constexpr std::uint32_t unnamed_mark = 0x80000000U;  // in brec_op::target while parsing
constexpr unsigned most_nested_pointers = 4;

class parser {
 public:
  parser(std::string_view fields, brec_form form) : rest_(fields), form_(form) {}

  bool run(std::vector<brec_type>* ret) {
    while (!rest_.empty()) {
      if (!parse_type()) return false;
    }
    return !types_.empty() && resolve(ret);
  }

 private:
  bool take(std::string_view token) noexcept {
    if (!rest_.starts_with(token)) return false;
    rest_.remove_prefix(token.size());
    return true;
  }

  bool parse_number(std::uint32_t most, std::uint32_t* ret) noexcept {
    std::uint32_t value = 0;
    std::size_t digits = 0;
    while (digits < rest_.size() && rest_[digits] >= '0' && rest_[digits] <= '9') {
      value = value * 10 + static_cast<std::uint32_t>(rest_[digits] - '0');
      if (value > most) return false;
      ++digits;
    }
    rest_.remove_prefix(digits);
    *ret = value;
    return digits > 0;
  }

  // A name up to `end`, which is taken too.
  bool parse_name(char end) noexcept {
    const std::size_t length = rest_.find(end);
    if (length == 0 || length == std::string_view::npos) return false;
    const std::string_view name = rest_.substr(0, length);
    if (name.find_first_of("{}[]<>(),;") != std::string_view::npos) return false;
    rest_.remove_prefix(length + 1);
    return true;
  }

  bool parse_field_name() noexcept {
    return form_ == brec_form::brief || (take("{") && parse_name('}'));
  }

  bool parse_type() {
    brec_type type;
    if (!take("$") || !parse_number(most_number, &type.number) || type.number == 0) return false;
    if (!take("=")) return false;
    if (!(take("?(") ? parse_union(type) : parse_fields(type))) return false;
    const bool repeated = std::any_of(types_.begin(), types_.end(), [&](const brec_type& other) {
      return other.number == type.number;
    });
    if (repeated) return false;
    types_.push_back(std::move(type));
    return true;
  }

  bool parse_fields(brec_type& type) {
    while (!take(";")) {
      brec_op op;
      if (!(take("L") ? parse_link(type, op) : parse_field_name() && parse_element(op, 0))) {
        return false;
      }
      type.ops.push_back(op);
    }
    return true;
  }

  bool parse_link(brec_type& type, brec_op& op) noexcept {
    std::uint32_t number = 0;
    if (!parse_field_name() || !take("p($") || !parse_number(most_number, &number) || !take(")")) {
      return false;
    }
    if (number != type.number || type.is_linked) return false;
    type.is_linked = true;
    op.kind = brec_kind::link;
    op.target = number;
    return true;
  }

  bool parse_union(brec_type& type) {
    type.is_union = true;
    if (form_ == brec_form::full && (!take("<") || !parse_name(',') || !parse_name('>'))) {
      return false;
    }
    while (take(",")) {
      if (take("?:v")) {
        type.has_default = true;
        break;
      }
      brec_op arm;
      std::uint32_t code = 0;
      if (!parse_number(most_number, &code) || !take(":") || !parse_field_name() ||
          !parse_element(arm, 0)) {
        return false;
      }
      arm.code = code;
      const bool repeated = std::any_of(type.ops.begin(), type.ops.end(),
                                        [&](const brec_op& other) { return other.code == code; });
      if (repeated) return false;
      type.ops.push_back(arm);
    }
    return take(");");
  }

  bool parse_element(brec_op& op, unsigned pointers) {
    if (take("p(")) return parse_pointer(op, pointers);
    if (take("$")) {
      op.kind = brec_kind::nested;
      return parse_number(most_number, &op.target) && (form_ == brec_form::full || take("."));
    }
    if (take("D")) return plain(op, brec_kind::u32);
    if (take("H")) return plain(op, brec_kind::u64);
    if (take("b")) return plain(op, brec_kind::boolean);
    if (take(form_ == brec_form::full ? "[" : "e")) {
      if (form_ == brec_form::full && (!parse_name(']') || !take("e"))) return false;
      return plain(op, brec_kind::enumeration);
    }
    op.kind = brec_kind::text;
    return parse_number(most_text_width, &op.width) && op.width > 0 && take("x%S");
  }

  bool parse_pointer(brec_op& op, unsigned pointers) {
    op.kind = brec_kind::pointer;
    if (take("$")) return parse_number(most_number, &op.target) && take(")");
    if (pointers == most_nested_pointers) return false;
    brec_type unnamed;
    unnamed.ops.emplace_back();
    if (!parse_element(unnamed.ops.front(), pointers + 1) || !take(")")) return false;
    op.target = unnamed_mark | static_cast<std::uint32_t>(unnamed_.size());
    unnamed_.push_back(std::move(unnamed));
    return true;
  }

  static bool plain(brec_op& op, brec_kind kind) noexcept {
    op.kind = kind;
    return true;
  }

  // Numbers become indexes; unnamed types follow the named ones.
  bool resolve(std::vector<brec_type>* ret) {
    const auto named = static_cast<std::uint32_t>(types_.size());
    std::move(unnamed_.begin(), unnamed_.end(), std::back_inserter(types_));
    for (brec_type& type : types_) {
      for (brec_op& op : type.ops) {
        if (!resolve_target(op, named)) return false;
      }
    }
    *ret = std::move(types_);
    return true;
  }

  bool resolve_target(brec_op& op, std::uint32_t named) const noexcept {
    if ((op.target & unnamed_mark) != 0) {
      op.target = named + (op.target & ~unnamed_mark);
      return true;
    }
    if (op.target == 0) return op.kind != brec_kind::nested && op.kind != brec_kind::pointer;
    for (std::uint32_t index = 0; index < named; ++index) {
      if (types_[index].number == op.target) {
        op.target = index;
        return true;
      }
    }
    return false;
  }

  std::string_view rest_;
  brec_form form_;
  std::vector<brec_type> types_;
  std::vector<brec_type> unnamed_;
};

}  // namespace

bool brec_parse(std::string_view fields, brec_form form, brec_program* ret) {
  std::vector<brec_type> types;
  if (!parser(fields, form).run(&types) || !brec_lay_out(types)) return false;
  ret->types = std::move(types);
  return true;
}

std::string_view brec_definition(std::string_view fields, std::uint32_t number) noexcept {
  while (!fields.empty()) {
    const std::string_view type = fields.substr(0, fields.find(';'));
    std::uint32_t value = 0;
    std::size_t at = type.starts_with('$') ? 1 : type.size();
    for (; at < type.size() && type[at] >= '0' && type[at] <= '9'; ++at) {
      value = value * 10 + static_cast<std::uint32_t>(type[at] - '0');
    }
    if (at < type.size() && type[at] == '=' && value == number) return type;
    fields.remove_prefix(std::min(fields.size(), type.size() + 1));
  }
  return {};
}

}  // namespace ot
