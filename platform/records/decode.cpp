// Decoding: reads bytes that may come from anywhere into a record. Nothing is allocated before the
// bytes that are left could hold it, every value is checked against its field, and each new record
// is linked in at once, so that a failure anywhere leaves one tree to release. Beside it the memory
// of records: zeroed blocks, and the walk that frees everything that a record links to.
#include <cstring>
#include <new>

#include "platform/brec.h"
#include "platform/records/program.h"
#include "platform/records/wire.h"
#include "platform/status.h"

namespace ot {
namespace {

template <typename Value>
void store(std::byte* at, const Value& value) noexcept {
  std::memcpy(at, &value, sizeof value);
}

class decoder {
 public:
  decoder(const brec_program& program, brec_reader& reader) : types_(program.types), in_(reader) {}

  // The number of records that follow for a target: 0 or 1 for a plain type. Those that cannot fit
  // into the bytes left are malformed.
  int get_count(const brec_type& type, std::uint64_t* ret) noexcept {
    std::uint64_t count = 0;
    if (!in_.get_varint(type.is_linked ? brec_most_encoded : 1, &count) ||
        count * type.least_encoded > in_.left()) {
      return record_malformed;
    }
    *ret = count;
    return status_ok;
  }

  // `count` records, at least one: the first into `first`, the others allocated and linked.
  int get_records(const brec_type& type, std::byte* first, std::uint64_t count,
                  unsigned depth) noexcept {
    std::byte* record = first;
    int status = get_record(type, record, depth);
    while (status == 0 && --count > 0) {
      auto* next = static_cast<std::byte*>(brec_alloc(type.size));
      if (next == nullptr) return no_memory;
      store(record + type.link_offset, next);
      record = next;
      status = get_record(type, record, depth);
    }
    return status;
  }

 private:
  int get_record(const brec_type& type, std::byte* record, unsigned depth) noexcept {
    if (type.is_union) return get_union(type, record, depth);
    for (const brec_op& op : type.ops) {
      const int status = get_field(op, record + op.offset, depth);
      if (status != 0) return status;
    }
    return status_ok;
  }

  int get_union(const brec_type& type, std::byte* record, unsigned depth) noexcept {
    std::uint64_t code = 0;
    if (!in_.get_varint(UINT32_MAX, &code)) return record_malformed;
    store(record, static_cast<std::uint32_t>(code));
    for (const brec_op& op : type.ops) {
      if (op.code == code) return get_field(op, record + op.offset, depth);
    }
    return type.has_default ? status_ok : record_malformed;
  }

  int get_field(const brec_op& op, std::byte* at, unsigned depth) noexcept {
    switch (op.kind) {
      case brec_kind::u32:
      case brec_kind::enumeration:
        return get_number<std::uint32_t>(at);
      case brec_kind::u64:
        return get_number<std::uint64_t>(at);
      case brec_kind::boolean: {
        bool value = false;
        if (!in_.get_boolean(&value)) return record_malformed;
        store(at, value);
        return status_ok;
      }
      case brec_kind::text: {
        std::string_view text;
        if (!in_.get_text(op.width - 1, &text)) return record_malformed;
        std::memcpy(at, text.data(), text.size());  // the rest of the field is zero already
        return status_ok;
      }
      case brec_kind::nested:
        return get_record(types_[op.target], at, depth);
      case brec_kind::pointer:
        return get_pointer(types_[op.target], at, depth + 1);
      case brec_kind::link:
        return status_ok;  // set by get_records
    }
    return record_malformed;
  }

  template <typename Number>
  int get_number(std::byte* at) noexcept {
    std::uint64_t value = 0;
    if (!in_.get_varint(Number(-1), &value)) return record_malformed;
    store(at, static_cast<Number>(value));
    return status_ok;
  }

  int get_pointer(const brec_type& type, std::byte* at, unsigned depth) noexcept {
    std::uint64_t count = 0;
    const int status = get_count(type, &count);
    if (status != 0 || count == 0) return status;
    if (depth > brec_most_depth) return record_malformed;
    auto* first = static_cast<std::byte*>(brec_alloc(type.size));
    if (first == nullptr) return no_memory;
    store(at, first);
    return get_records(type, first, count, depth);
  }

  const std::vector<brec_type>& types_;
  brec_reader& in_;
};

// Skips the heading. Bytes that are a record's, but not of this type and version, are distinguished
// from bytes that are no record at all.
int check_heading(const brec_compiled& compiled, std::span<const std::byte>* bytes) noexcept {
  const std::span<const std::byte> heading = compiled.heading;
  constexpr std::size_t mark = 3;  // "BR" and the form
  if (bytes->size() < mark || std::memcmp(bytes->data(), heading.data(), mark) != 0) {
    return record_malformed;
  }
  if (bytes->size() < heading.size() ||
      std::memcmp(bytes->data(), heading.data(), heading.size()) != 0) {
    return record_unknown_type;
  }
  *bytes = bytes->subspan(heading.size());
  return status_ok;
}

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

int brec_decode(const brec_descriptor& descriptor, std::span<const std::byte> bytes,
                void* record) noexcept {
  const brec_compiled* compiled = brec_find(descriptor);
  if (compiled == nullptr) return record_unknown_type;
  int status = check_heading(*compiled, &bytes);
  if (status != 0) return status;
  brec_reader reader(bytes);
  decoder walk(compiled->program, reader);
  const brec_type& type = compiled->program.types.front();
  std::uint64_t count = 0;
  status = walk.get_count(type, &count);
  if (status != 0 || count == 0) return record_malformed;
  status = walk.get_records(type, static_cast<std::byte*>(record), count, 0);
  if (status == 0 && reader.left() > 0) status = record_malformed;
  if (status != 0) brec_release(descriptor, record);
  return status;
}

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
