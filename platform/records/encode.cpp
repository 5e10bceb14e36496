// Encoding: walks a record by its type's program and writes each field's value. The record comes
// from the process itself, so what cannot be (an unterminated text, an endless chain) is refused
// rather than repaired.
#include <cstring>
#include <new>

#include "platform/brec.h"
#include "platform/records/program.h"
#include "platform/records/wire.h"
#include "platform/status.h"

namespace ot {
namespace {

template <typename Value>
Value load(const std::byte* at) noexcept {
  Value value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

class encoder {
 public:
  encoder(const brec_program& program, brec_writer& writer) : types_(program.types), out_(writer) {}

  // A record, or the sequence that starts with it. Null is a sequence without elements, or an
  // absent record.
  void put_target(const brec_type& type, const std::byte* record, unsigned depth) noexcept {
    if (record != nullptr && depth > brec_most_depth) {
      out_.fail(record_malformed);
      return;
    }
    if (!type.is_linked) {
      out_.put_byte(record == nullptr ? 0 : 1);
      if (record != nullptr) put_record(type, record, depth);
      return;
    }
    put_sequence(type, record, depth);
  }

 private:
  void put_sequence(const brec_type& type, const std::byte* first, unsigned depth) noexcept {
    const auto next = [&](const std::byte* record) {
      return load<const std::byte*>(record + type.link_offset);
    };
    std::size_t count = 0;
    for (const std::byte* at = first; at != nullptr; at = next(at)) {
      // Each element takes a byte at least, so this also ends a ring.
      if (++count > brec_most_encoded) {
        out_.fail(record_malformed);
        return;
      }
    }
    out_.put_varint(count);
    for (const std::byte* at = first; at != nullptr && out_.status() == 0; at = next(at)) {
      put_record(type, at, depth);
    }
  }

  void put_record(const brec_type& type, const std::byte* record, unsigned depth) noexcept {
    if (type.is_union) {
      put_union(type, record, depth);
      return;
    }
    for (const brec_op& op : type.ops) {
      put_field(op, record + op.offset, depth);
    }
  }

  void put_union(const brec_type& type, const std::byte* record, unsigned depth) noexcept {
    const auto code = load<std::uint32_t>(record);
    out_.put_varint(code);
    for (const brec_op& op : type.ops) {
      if (op.code == code) {
        put_field(op, record + op.offset, depth);
        return;
      }
    }
    if (!type.has_default) out_.fail(record_malformed);
  }

  void put_field(const brec_op& op, const std::byte* at, unsigned depth) noexcept {
    switch (op.kind) {
      case brec_kind::u32:
      case brec_kind::enumeration:
        out_.put_varint(load<std::uint32_t>(at));
        return;
      case brec_kind::u64:
        out_.put_varint(load<std::uint64_t>(at));
        return;
      case brec_kind::boolean:
        put_boolean(load<std::uint8_t>(at));
        return;
      case brec_kind::text:
        put_text(reinterpret_cast<const char*>(at), op.width);
        return;
      case brec_kind::nested:
        put_record(types_[op.target], at, depth);
        return;
      case brec_kind::pointer:
        put_target(types_[op.target], load<const std::byte*>(at), depth + 1);
        return;
      case brec_kind::link:
        return;  // its sequence follows it
    }
  }

  void put_boolean(std::uint8_t value) noexcept {
    if (value > 1) {
      out_.fail(record_malformed);
      return;
    }
    out_.put_byte(value);
  }

  void put_text(const char* text, std::size_t width) noexcept {
    const std::size_t length = strnlen(text, width);
    if (length == width) {
      out_.fail(record_malformed);
      return;
    }
    out_.put_varint(length);
    out_.put_bytes(text, length);
  }

  const std::vector<brec_type>& types_;
  brec_writer& out_;
};

}  // namespace

int brec_encode(const brec_descriptor& descriptor, const void* record, std::byte** ret,
                std::size_t* ret_length) noexcept {
  const brec_compiled* compiled = brec_find(descriptor);
  if (compiled == nullptr) return record_unknown_type;
  if (record == nullptr) return invalid_argument;
  brec_writer writer;
  writer.put_bytes(compiled->heading.data(), compiled->heading.size());
  encoder(compiled->program, writer)
      .put_target(compiled->program.types.front(), static_cast<const std::byte*>(record), 0);
  if (writer.status() != 0) return writer.status();
  const std::span<const std::byte> bytes = writer.bytes();
  auto* copy = new (std::nothrow) std::byte[bytes.size()];
  if (copy == nullptr) return no_memory;
  std::memcpy(copy, bytes.data(), bytes.size());
  *ret = copy;
  *ret_length = bytes.size();
  return status_ok;
}

}  // namespace ot
