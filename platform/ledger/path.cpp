// The rules of ledger paths: "/cfg/gl/object_tracking/track/uplink/a". They hold for everything
// that enters the ledger, whatever the tree below, so that a path can always be a store's key, a
// line of a log and a C string.
#include "platform/ledger/path.h"

#include <algorithm>

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

}  // namespace ot
