// The in-memory router. Each service keeps its state as one part of the world, made when it is
// first asked for; field::reset() throws the whole world away. For the files of this folder.
#pragma once

#include <initializer_list>
#include <memory>
#include <optional>
#include <string_view>
#include <typeinfo>

namespace ot {

using world_part_maker = std::shared_ptr<void> (*)();
void* find_world_part(const std::type_info& type, world_part_maker make);

// The world's only Part (default constructed). Valid until the next reset. Finding it is safe in
// any thread; what it holds is the part's own business.
template <typename Part>
Part& world_part() {
  return *static_cast<Part*>(find_world_part(
      typeid(Part), [] { return std::static_pointer_cast<void>(std::make_shared<Part>()); }));
}

// Destroys all parts, the newest first.
void world_end();

// What a test ordered with field::fail_next for this call of `operation`; to be asked once a call.
// Nothing: go on as usual. A `result` of 0 means that only the item status reports a failure.
struct ordered_failure {
  int result = 0;
  int item_status = 0;
};
std::optional<ordered_failure> take_failure(std::string_view operation) noexcept;

// The same for operations that have no item status: the code to fail with, or 0.
int take_failure_code(std::string_view operation) noexcept;

// Writes down what a client has said of itself: field::take_introductions. Any thread.
void note_introduction(std::string_view operation, std::initializer_list<std::string_view> said);

}  // namespace ot
