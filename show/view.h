// What the kinds share when they print a track: see track_kind::show_object and show_detail.
#pragma once

#include "oper/records/track_records.h"
#include "platform/interface_manager.h"

namespace ot {

// A detailed record under way: what is printed of it at several places.
struct printed_track {
  const track_info__& record;
  const char* subject;  // whose state the track has
  char suffix[64];      // ends every line that says the state
};

// The line "Subject is UP" with the delay that runs, and the line of the changes.
void print_state(const printed_track& track, bool up);
void print_changes(const track_info__& record);

// The name of an interface as people read it.
class display_name {
 public:
  explicit display_name(const record_text& name) noexcept {
    ifc_display_namestring(name.c_str(), text_, sizeof text_, 2);
  }
  [[nodiscard]] const char* c_str() const noexcept { return text_; }

 private:
  char text_[128] = "";
};

// --- The two views, to standard output -----------------------------------------------------------

// One block of lines for each record of the chain.
void ot_display_track_info(const track_info__* records);

// A table with one line for each record of the chain; its heading also without any.
void ot_display_track_info_brief(const track_info_brief__* records);

}  // namespace ot
