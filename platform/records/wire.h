// The bytes of an encoded record.
//
//   "BR"  form (1)  version  name length, name  fingerprint (8 bytes)  contents
//
// Numbers are varints: seven bits a byte, lowest first, the highest bit set on all but the last
// byte, no superfluous bytes. The fingerprint is the 64-bit FNV-1a hash of the brief field string,
// lowest byte first. Contents: a boolean is one byte, 0 or 1; a text its length and its
// characters; a pointer 0, or 1 and what it leads to; a sequence the number of its elements and the
// elements; a union its discriminant and the member that it selects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "platform/brec.h"

namespace ot {

inline constexpr std::size_t brec_longest_varint = 10;

// What every encoding of the type begins with. Throws std::bad_alloc.
std::vector<std::byte> brec_heading(const brec_descriptor& descriptor);

// A growing buffer that starts on the stack. After a failure it stays failed and writes nothing.
class brec_writer {
 public:
  brec_writer() noexcept = default;
  brec_writer(const brec_writer&) = delete;
  brec_writer& operator=(const brec_writer&) = delete;

  void put_byte(std::uint8_t value) noexcept {
    if (reserve(1)) data_[size_++] = static_cast<std::byte>(value);
  }

  void put_varint(std::uint64_t value) noexcept {
    if (!reserve(brec_longest_varint)) return;
    while (value >= 0x80) {
      data_[size_++] = static_cast<std::byte>(value | 0x80);
      value >>= 7;
    }
    data_[size_++] = static_cast<std::byte>(value);
  }

  void put_bytes(const void* bytes, std::size_t length) noexcept {
    if (!reserve(length) || length == 0) return;
    std::memcpy(data_ + size_, bytes, length);
    size_ += length;
  }

  void fail(int status) noexcept {
    if (status_ == 0) status_ = status;
  }
  [[nodiscard]] int status() const noexcept { return status_; }
  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return {data_, size_}; }

 private:
  bool reserve(std::size_t more) noexcept {
    return status_ == 0 && (capacity_ - size_ >= more || grow(more));
  }
  bool grow(std::size_t more) noexcept;

  std::byte first_[2048];
  std::unique_ptr<std::byte[]> heap_;
  std::byte* data_ = first_;
  std::size_t capacity_ = sizeof first_;
  std::size_t size_ = 0;
  int status_ = 0;
};

// Takes values off the front; false when what is there is not one.
class brec_reader {
 public:
  explicit brec_reader(std::span<const std::byte> bytes) noexcept : rest_(bytes) {}

  [[nodiscard]] std::size_t left() const noexcept { return rest_.size(); }
  bool get_varint(std::uint64_t most, std::uint64_t* ret) noexcept;
  bool get_boolean(bool* ret) noexcept;
  bool get_text(std::size_t most, std::string_view* ret) noexcept;

 private:
  std::span<const std::byte> rest_;
};

}  // namespace ot
