// Where the fields of a record lie: each at its natural alignment, in order, the whole padded to
// the strictest one, as a C++ compiler lays the matching struct out. The same walk finds the
// shortest encoding of each type, by which the decoder sees an impossible element count before it
// allocates anything.
#include <algorithm>

#include "platform/records/program.h"

namespace ot {
namespace {

constexpr std::uint32_t most_size = 1U << 20;

struct extent {
  std::uint32_t size = 0;
  std::uint32_t alignment = 1;
  std::uint32_t least_encoded = 0;
};

constexpr std::uint32_t align_up(std::uint32_t offset, std::uint32_t alignment) noexcept {
  return (offset + alignment - 1) / alignment * alignment;
}

class layouter {
 public:
  explicit layouter(std::vector<brec_type>& types) : types_(types), states_(types.size()) {}

  bool run() {
    for (std::size_t index = 0; index < types_.size(); ++index) {
      if (!lay_out(index)) return false;
    }
    return true;
  }

 private:
  enum class progress : std::uint8_t { none, running, done };

  bool lay_out(std::size_t index) {
    if (states_[index] == progress::done) return true;
    if (states_[index] == progress::running) return false;  // contains itself in place
    states_[index] = progress::running;
    brec_type& type = types_[index];
    if (type.ops.empty()) return false;
    if (!(type.is_union ? lay_out_union(type) : lay_out_struct(type))) return false;
    states_[index] = progress::done;
    return true;
  }

  bool lay_out_struct(brec_type& type) {
    std::uint32_t offset = 0;
    for (brec_op& op : type.ops) {
      extent field;
      if (!measure(op, &field)) return false;
      op.offset = align_up(offset, field.alignment);
      offset = op.offset + field.size;
      if (offset > most_size) return false;
      if (op.kind == brec_kind::link) type.link_offset = op.offset;
      type.alignment = std::max(type.alignment, field.alignment);
      type.least_encoded += field.least_encoded;
    }
    type.size = align_up(offset, type.alignment);
    // A type of nothing but its link would make sequences whose elements take no bytes.
    return type.least_encoded > 0;
  }

  bool lay_out_union(brec_type& type) {
    extent widest{sizeof(std::uint32_t), alignof(std::uint32_t), UINT32_MAX};
    std::uint32_t arm_alignment = 1;
    std::uint32_t arm_size = 0;
    for (const brec_op& op : type.ops) {
      extent field;
      if (!measure(op, &field)) return false;
      arm_alignment = std::max(arm_alignment, field.alignment);
      arm_size = std::max(arm_size, field.size);
      widest.least_encoded = std::min(widest.least_encoded, field.least_encoded);
    }
    const std::uint32_t arms_at = align_up(sizeof(std::uint32_t), arm_alignment);
    for (brec_op& op : type.ops) {
      op.offset = arms_at;
    }
    type.alignment = std::max(widest.alignment, arm_alignment);
    type.size = align_up(arms_at + arm_size, type.alignment);
    type.least_encoded = 1 + (type.has_default ? 0 : widest.least_encoded);
    return type.size <= most_size;
  }

  bool measure(const brec_op& op, extent* ret) {
    switch (op.kind) {
      case brec_kind::u32:
      case brec_kind::enumeration:
        *ret = {sizeof(std::uint32_t), alignof(std::uint32_t), 1};
        return true;
      case brec_kind::u64:
        *ret = {sizeof(std::uint64_t), alignof(std::uint64_t), 1};
        return true;
      case brec_kind::boolean:
        *ret = {sizeof(bool), alignof(bool), 1};
        return true;
      case brec_kind::text:
        *ret = {op.width, 1, 1};
        return true;
      case brec_kind::pointer:
        *ret = {sizeof(void*), alignof(void*), 1};
        return true;
      case brec_kind::link:
        *ret = {sizeof(void*), alignof(void*), 0};
        return true;
      case brec_kind::nested:
        return measure_nested(op, ret);
    }
    return false;
  }

  bool measure_nested(const brec_op& op, extent* ret) {
    if (!lay_out(op.target)) return false;
    const brec_type& type = types_[op.target];
    *ret = {type.size, type.alignment, type.least_encoded};
    return !type.is_linked;  // a sequence is reached through a pointer only
  }

  std::vector<brec_type>& types_;
  std::vector<progress> states_;
};

}  // namespace

bool brec_lay_out(std::vector<brec_type>& types) {
  return layouter(types).run();
}

}  // namespace ot
