// A value is taken apart from its outside, by a list of what is left of it, since a text from
// outside may be nested deeper than a stack is. Where there is no memory for that list the parts'
// destructors do the rest: those of anything that this process has made are a few levels deep.
#include "tools/json.h"

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace {

template <typename Json>
void move_children(typename Json::array_t& from, std::vector<Json>& to) {
  for (Json& child : from) {
    to.push_back(std::move(child));
  }
  from.clear();
}

template <typename Json>
void move_children(typename Json::object_t& from, std::vector<Json>& to) {
  for (auto& [name, child] : from) {
    to.push_back(std::move(child));
  }
  from.clear();
}

template <typename Json, typename Container>
void take_apart(Container& container) noexcept {
  try {
    std::vector<Json> left;
    move_children<Json>(container, left);
    while (!left.empty()) {
      Json value = std::move(left.back());
      left.pop_back();
      if (value.is_array()) {
        move_children<Json>(value.template get_ref<typename Json::array_t&>(), left);
      } else if (value.is_object()) {
        move_children<Json>(value.template get_ref<typename Json::object_t&>(), left);
      }
    }
  } catch (const std::bad_alloc&) {
    return;
  }
}

template <typename Part>
void release(Part* part) noexcept {
  if (part != nullptr) {
    std::destroy_at(part);
    std::allocator<Part>().deallocate(part, 1);
  }
}

template <typename Json, typename Container>
void release_all(Container* container) noexcept {
  if (container != nullptr) {
    take_apart<Json>(*container);
  }
  release(container);
}

template <typename Json, typename Value>
void destroy_value(Value& value, nlohmann::detail::value_t type) noexcept {
  switch (type) {
    case nlohmann::detail::value_t::object:
      release_all<Json>(value.object);
      break;
    case nlohmann::detail::value_t::array:
      release_all<Json>(value.array);
      break;
    case nlohmann::detail::value_t::string:
      release(value.string);
      break;
    case nlohmann::detail::value_t::binary:
      release(value.binary);
      break;
    default:
      break;
  }
}

}  // namespace

template <>
void nlohmann::json::json_value::destroy(value_t type) {
  destroy_value<nlohmann::json>(*this, type);
}
template <>
void nlohmann::ordered_json::json_value::destroy(value_t type) {
  destroy_value<nlohmann::ordered_json>(*this, type);
}

template class nlohmann::basic_json<>;
template class nlohmann::basic_json<nlohmann::ordered_map>;
