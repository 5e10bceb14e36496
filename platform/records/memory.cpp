// The memory of records: zeroed blocks, and the walk that frees everything that a record links to.
#include <cstring>
#include <new>

#include "platform/records/program.h"

namespace ot {
namespace {

class releaser {
 public:
  explicit releaser(const brec_program& program) : types_(program.types) {}

  // What the record points to and, when it is linked, the records behind it; not the record.
  void release_target(const brec_type& type, std::byte* record) noexcept {
    release_fields(type, record);
    if (!type.is_linked) return;
    std::byte* at = load(record + type.link_offset);
    while (at != nullptr) {
      std::byte* const next = load(at + type.link_offset);
      release_fields(type, at);
      ::operator delete(at);
      at = next;
    }
  }

 private:
  static std::byte* load(const std::byte* at) noexcept {
    std::byte* value = nullptr;
    std::memcpy(&value, at, sizeof value);
    return value;
  }

  void release_fields(const brec_type& type, std::byte* record) noexcept {
    std::uint32_t code = 0;
    std::memcpy(&code, record, type.is_union ? sizeof code : 0);
    for (const brec_op& op : type.ops) {
      if (op.code == code || !type.is_union) release_field(op, record + op.offset);
    }
  }

  void release_field(const brec_op& op, std::byte* at) noexcept {
    if (op.kind == brec_kind::nested) release_fields(types_[op.target], at);
    if (op.kind != brec_kind::pointer) return;
    std::byte* const target = load(at);
    if (target == nullptr) return;
    release_target(types_[op.target], target);
    ::operator delete(target);
  }

  const std::vector<brec_type>& types_;
};

}  // namespace

void* brec_alloc(std::size_t size) noexcept {
  void* const block = ::operator new(size, std::nothrow);
  if (block != nullptr) std::memset(block, 0, size);
  return block;
}

void brec_release(const brec_descriptor& descriptor, void* record) noexcept {
  const brec_compiled* compiled = brec_find(descriptor);
  if (compiled == nullptr || record == nullptr) return;
  releaser(compiled->program)
      .release_target(compiled->program.types.front(), static_cast<std::byte*>(record));
  std::memset(record, 0, descriptor.size);
}

void brec_free(const brec_descriptor& descriptor, void* record) noexcept {
  brec_release(descriptor, record);
  ::operator delete(record);
}

}  // namespace ot
