// What all sources do with the tracks that follow one of their objects.

#include "sources/objects.h"

#include <cstring>
#include <new>

#include "state/publication.h"
#include "state/track_record.h"

namespace ot {

track_name_node* new_track_name_node(const char* name) noexcept {
  auto* node = new (std::nothrow) track_name_node{};
  if (node != nullptr) {
    node->name.assign(name);
  }
  return node;
}

void push_track_name(track_name_node*& head, track_name_node* node) noexcept {
  node->next = head;
  head = node;
}

bool remove_track_name(track_name_node*& head, const char* name) noexcept {
  for (track_name_node** link = &head; *link != nullptr; link = &(*link)->next) {
    track_name_node* node = *link;
    if (std::strncmp(node->name.c_str(), name, track_name::capacity) == 0) {
      *link = node->next;
      delete node;
      return true;
    }
  }
  return false;
}

void free_track_names(track_name_node*& head) noexcept {
  while (track_name_node* node = head) {
    head = node->next;
    delete node;
  }
}

void set_following_tracks(const track_name_node* head, track_state state, const char* who) {
  for (const track_name_node* node = head; node != nullptr; node = node->next) {
    ot_track* track = hash_db_get_track_item(node->name.c_str());
    if (track == nullptr) {
      OT_TRACE_ERROR("(%s) : track %s not found", who, node->name.c_str());
      return;
    }
    if (track->source_state == state) {
      continue;
    }
    track->source_state = state;
    if (object_tracking_set_track_state_in_ledger(node->name.c_str(), state) != status_ok) {
      OT_TRACE_ERROR("(%s) : object_tracking_set_track_state_in_ledger failed\n", who);
      return;
    }
  }
}

int traced(const char* who, const char* call, int status) noexcept {
  if (status != status_ok) {
    OT_TRACE_ERROR("(%s) : %s failed - %s", who, call, err_string(status));
  }
  return status;
}

int end_track_type(const char* name, const char* who, const char* untie_name,
                   int (*untie)(const char* name), int (*withdraw)(ot_track& track)) {
  int status = traced(who, untie_name, untie(name));
  if (status != status_ok) {
    return status;
  }
  ot_track* track = hash_db_get_track_item(name);
  if (track == nullptr) {
    return status_ok;
  }
  status = withdraw(*track);
  release_object(*track);  // it may have become a list since
  track->type = track_type::none;
  return status;
}

}  // namespace ot
