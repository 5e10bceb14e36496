// Reading and writing the values of an encoded record. Every value has exactly one encoding and the
// reader accepts no other, so equal records are equal bytes and the reverse.
#include "platform/records/wire.h"

#include <algorithm>
#include <new>

#include "platform/brec.h"
#include "platform/records/program.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint8_t form_version = 1;

std::uint64_t fingerprint(std::string_view text) noexcept {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char character : text) {
    hash = (hash ^ static_cast<std::uint8_t>(character)) * 0x100000001b3U;
  }
  return hash;
}

}  // namespace

std::vector<std::byte> brec_heading(const brec_descriptor& descriptor) {
  const std::string_view name = descriptor.type_name;
  brec_writer writer;
  writer.put_bytes("BR", 2);
  writer.put_byte(form_version);
  writer.put_varint(descriptor.version);
  writer.put_varint(name.size());
  writer.put_bytes(name.data(), name.size());
  const std::uint64_t print = fingerprint(descriptor.brief);
  for (unsigned shift = 0; shift < 64; shift += 8) {
    writer.put_byte(static_cast<std::uint8_t>(print >> shift));
  }
  return {writer.bytes().begin(), writer.bytes().end()};
}

bool brec_writer::grow(std::size_t more) noexcept {
  if (more > brec_most_encoded || size_ + more > brec_most_encoded) {
    fail(record_malformed);
    return false;
  }
  const std::size_t wanted = std::max(capacity_ * 2, size_ + more);
  std::unique_ptr<std::byte[]> larger(new (std::nothrow) std::byte[wanted]);
  if (larger == nullptr) {
    fail(no_memory);
    return false;
  }
  std::memcpy(larger.get(), data_, size_);
  heap_ = std::move(larger);
  data_ = heap_.get();
  capacity_ = wanted;
  return true;
}

bool brec_reader::get_varint(std::uint64_t most, std::uint64_t* ret) noexcept {
  std::uint64_t value = 0;
  const std::size_t limit = std::min(rest_.size(), brec_longest_varint);
  for (std::size_t at = 0; at < limit; ++at) {
    const auto byte = static_cast<std::uint8_t>(rest_[at]);
    const auto shift = static_cast<unsigned>(at * 7);
    if (shift == 63 && byte > 1) return false;
    value |= static_cast<std::uint64_t>(byte & 0x7fU) << shift;
    if ((byte & 0x80U) != 0) continue;
    if ((byte == 0 && at > 0) || value > most) return false;
    rest_ = rest_.subspan(at + 1);
    *ret = value;
    return true;
  }
  return false;
}

bool brec_reader::get_boolean(bool* ret) noexcept {
  if (rest_.empty() || static_cast<std::uint8_t>(rest_.front()) > 1) return false;
  *ret = rest_.front() != std::byte{0};
  rest_ = rest_.subspan(1);
  return true;
}

bool brec_reader::get_text(std::size_t most, std::string_view* ret) noexcept {
  std::uint64_t length = 0;
  if (!get_varint(most, &length) || length > rest_.size()) return false;
  const std::string_view text(reinterpret_cast<const char*>(rest_.data()),
                              static_cast<std::size_t>(length));
  if (text.find('\0') != std::string_view::npos) return false;
  rest_ = rest_.subspan(text.size());
  *ret = text;
  return true;
}

}  // namespace ot
