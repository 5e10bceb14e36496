// The bytes of the ledger's messages: numbers in little-endian order, texts and values behind their
// length. A reader never looks past its bytes; after the first thing that does not fit everything
// it returns is zero or empty and `ok` is false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace ot {

// What one message carries at most; a page of a list fits with room for its lengths.
inline constexpr std::size_t ledger_message_max = std::size_t{1} << 20;

class ledger_writer {
 public:
  void u8(std::uint8_t number);
  void u32(std::uint32_t number);
  void bytes(std::span<const std::byte> value);
  void text(std::string_view value);
  void append(const ledger_writer& other);

  [[nodiscard]] std::span<const std::byte> data() const noexcept { return data_; }

 private:
  std::vector<std::byte> data_;
};

class ledger_reader {
 public:
  explicit ledger_reader(std::span<const std::byte> data) noexcept : rest_(data) {}

  std::uint8_t u8() noexcept;
  std::uint32_t u32() noexcept;
  // Views into the message.
  std::span<const std::byte> bytes() noexcept;
  std::string_view text() noexcept;
  // A number of things of at least `least` bytes each, which the rest can hold.
  std::size_t count(std::size_t least) noexcept;

  [[nodiscard]] bool ok() const noexcept { return ok_; }
  // Whether everything fitted and nothing is left over.
  [[nodiscard]] bool finished() const noexcept { return ok_ && rest_.empty(); }

 private:
  std::span<const std::byte> take(std::size_t length) noexcept;

  std::span<const std::byte> rest_;
  bool ok_ = true;
};

}  // namespace ot
