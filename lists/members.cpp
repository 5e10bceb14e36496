// Chain operations shared by both kinds of lists.

#include "lists/members.h"

#include <cstring>
#include <new>

#include "platform/status.h"
#include "state/publication.h"
#include "state/track_record.h"

namespace ot {
namespace {

// The link that points to the first member of that name, or the null link at the end.
list_member** link_of(list_member** link, const char* name) noexcept {
  while (*link != nullptr && std::strncmp((*link)->name.c_str(), name, track_name::capacity) != 0) {
    link = &(*link)->next;
  }
  return link;
}

void unlink(list_member** link) noexcept {
  list_member* member = *link;
  *link = member->next;
  delete member;
}

}  // namespace

bool add_list_member(ot_track& track, const char* name, std::uint32_t value) noexcept {
  auto* member = new (std::nothrow) list_member{};
  if (member == nullptr) {
    return false;
  }
  member->name.assign(name);
  member->value = value;
  member->next = track.object.list.members;
  track.object.list.members = member;
  return true;
}

list_member* find_list_member(const ot_track& track, const char* name) noexcept {
  list_member* head = track.object.list.members;
  return *link_of(&head, name);
}

void remove_list_member(ot_track& track, const char* name) noexcept {
  list_member** link = link_of(&track.object.list.members, name);
  if (*link != nullptr) {
    unlink(link);
  }
}

void free_list_members(ot_track& track) noexcept {
  while (track.object.list.members != nullptr) {
    unlink(&track.object.list.members);
  }
}

int clear_list(ot_track& track) {
  const int status = withdraw_up_state(track);
  if (status == status_ok) {
    free_list_members(track);
  }
  return status;
}

void become_list(ot_track& track, track_type type) noexcept {
  // Members mean the same in every kind of list. A limits item may carry a type that is none.
  if (track.type != type && !(is_list_type(track.type) && is_list_type(type))) {
    forget_object(track);
  }
  track.type = type;
}

}  // namespace ot
