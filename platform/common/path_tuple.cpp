// Packed path tuples. The format is the only description of a tuple's content, so a format and
// bytes that do not fit together are refused as a whole, before anything is written.
#include "platform/path_tuple.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "platform/status.h"

namespace ot {
namespace {

// The number of "%N" in a format made of them only, or -1.
int count_numbers(const char* format) noexcept {
  int count = 0;
  if (format == nullptr) {
    return -1;
  }
  for (; *format != '\0'; format += 2) {
    if (format[0] != '%' || format[1] != 'N') {
      return -1;
    }
    ++count;
  }
  return count;
}

}  // namespace

int path_tuple_pack(std::span<std::byte> buffer, std::size_t* ret_length, const char* format,
                    ...) noexcept {
  const int count = count_numbers(format);
  const std::size_t length = count < 0 ? 0 : static_cast<std::size_t>(count) * 4;
  if (count < 0 || length > buffer.size() || ret_length == nullptr) {
    return invalid_argument;
  }
  std::va_list arguments;
  va_start(arguments, format);
  for (std::size_t at = 0; at < length; at += 4) {
    const std::uint32_t number = va_arg(arguments, std::uint32_t);
    std::memcpy(buffer.data() + at, &number, 4);
  }
  va_end(arguments);
  *ret_length = length;
  return status_ok;
}

int path_tuple_unpack(std::span<const std::byte> bytes, const char* format, ...) noexcept {
  const int count = count_numbers(format);
  if (count < 0 || static_cast<std::size_t>(count) * 4 != bytes.size()) {
    return invalid_argument;
  }
  std::va_list arguments;
  va_start(arguments, format);
  for (std::size_t at = 0; at < bytes.size(); at += 4) {
    std::memcpy(va_arg(arguments, std::uint32_t*), bytes.data() + at, 4);
  }
  va_end(arguments);
  return status_ok;
}

}  // namespace ot
