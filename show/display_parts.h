// What both views of a track need.
#pragma once

#include "oper/records/track_records.h"
#include "platform/interface_manager.h"

namespace ot {

// The type to print a record by: its own, or none when its union holds another type's member.
template <typename Record>
track_type shown_type(const Record& record) noexcept {
  const bool fits = is_list_type(record.Type) ||
                    record.TrackTypeInfo.discriminant == static_cast<std::uint32_t>(record.Type);
  return fits ? record.Type : track_type::none;
}

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

}  // namespace ot
