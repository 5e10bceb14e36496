// Writing and reading the bytes of the ledger's messages. Whatever a peer sends is read through
// ledger_reader::take, the one place that looks at lengths.
#include "platform/ledger/wire.h"

namespace ot {

void ledger_writer::u8(std::uint8_t number) {
  data_.push_back(std::byte{number});
}

void ledger_writer::u32(std::uint32_t number) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    data_.push_back(static_cast<std::byte>(number >> shift));
  }
}

void ledger_writer::bytes(std::span<const std::byte> value) {
  u32(static_cast<std::uint32_t>(value.size()));
  data_.insert(data_.end(), value.begin(), value.end());
}

void ledger_writer::text(std::string_view value) {
  bytes(std::as_bytes(std::span{value}));
}

void ledger_writer::append(const ledger_writer& other) {
  data_.insert(data_.end(), other.data_.begin(), other.data_.end());
}

std::span<const std::byte> ledger_reader::take(std::size_t length) noexcept {
  if (length > rest_.size()) {
    ok_ = false;
    rest_ = {};
    return {};
  }
  const auto taken = rest_.first(length);
  rest_ = rest_.subspan(length);
  return taken;
}

std::uint8_t ledger_reader::u8() noexcept {
  const auto taken = take(1);
  return taken.empty() ? std::uint8_t{0} : std::to_integer<std::uint8_t>(taken[0]);
}

std::uint32_t ledger_reader::u32() noexcept {
  std::uint32_t number = 0;
  unsigned shift = 0;
  for (const std::byte byte : take(4)) {
    number |= std::to_integer<std::uint32_t>(byte) << shift;
    shift += 8;
  }
  return number;
}

std::span<const std::byte> ledger_reader::bytes() noexcept {
  return take(u32());
}

std::string_view ledger_reader::text() noexcept {
  const auto taken = bytes();
  return {reinterpret_cast<const char*>(taken.data()), taken.size()};
}

std::size_t ledger_reader::count(std::size_t least) noexcept {
  const std::size_t number = u32();
  if (number > rest_.size() / least) {
    ok_ = false;
    rest_ = {};
    return 0;
  }
  return number;
}

}  // namespace ot
