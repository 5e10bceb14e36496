// The rules of ledger paths ("/cfg/gl/object_tracking/track/uplink/a") and values, and the one
// place where values are copied.
#include "platform/ledger/item.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

#include "platform/status.h"

namespace ot {
namespace {

bool is_control(char character) noexcept {
  const auto code = static_cast<unsigned char>(character);
  return code < 0x20 || code == 0x7f;
}

}  // namespace

bool ledger_item_path_valid(std::string_view path) noexcept {
  return path.size() > 1 && path.size() <= ledger_path_max && path.front() == '/' &&
         path.back() != '/' && path.find("//") == std::string_view::npos &&
         std::none_of(path.begin(), path.end(), is_control);
}

bool ledger_base_path_valid(std::string_view path) noexcept {
  return path == "/" || (path.ends_with('/') && path.size() <= ledger_path_max &&
                         ledger_item_path_valid(path.substr(0, path.size() - 1)));
}

bool ledger_path_is_configuration(std::string_view path) noexcept {
  return path.starts_with("/cfg/");
}

std::string_view ledger_next_element(std::string_view& path) noexcept {
  const std::size_t end = path.find('/');
  const std::string_view element = path.substr(0, end);
  path.remove_prefix(end == std::string_view::npos ? path.size() : end + 1);
  return element;
}

const char* ledger_value_fault(ledger_kind kind, std::span<const std::byte> bytes) noexcept {
  if (bytes.size() > ledger_value_max) {
    return "the value is too long";
  }
  switch (kind) {
    case ledger_kind::u32:
      return bytes.size() == sizeof(std::uint32_t) ? nullptr : "the number is not of 4 bytes";
    case ledger_kind::text:
      return std::find(bytes.begin(), bytes.end(), std::byte{0}) == bytes.end()
                 ? nullptr
                 : "the text holds a zero byte";
    case ledger_kind::tuple:
      return !bytes.empty() && bytes.size() % 4 == 0 ? nullptr
                                                     : "the tuple is not of whole numbers";
    case ledger_kind::record:
      return nullptr;
  }
  return "the kind of value is not known";
}

int ledger_value_assign(ledger_value& ret, ledger_kind kind,
                        std::span<const std::byte> bytes) noexcept {
  std::unique_ptr<std::byte[]> copy{new (std::nothrow)
                                        std::byte[std::max<std::size_t>(1, bytes.size())]};
  if (!copy) {
    return no_memory;
  }
  std::copy(bytes.begin(), bytes.end(), copy.get());
  ret.kind = kind;
  ret.data = std::move(copy);
  ret.length = bytes.size();
  return status_ok;
}

}  // namespace ot
