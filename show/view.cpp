// The two views of tracks. What is particular to a kind stands in its row; what the kinds have in
// common is printed here.

#include "show/view.h"

#include <cstdio>
#include <ctime>

#include "core/track_kind.h"

namespace ot {
namespace {

// The type to print a record by: its own, or none when its union holds another type's member.
template <typename Record>
track_type shown_type(const Record& record) noexcept {
  const track_kind* kind = track_kind_of(record.Type);
  const bool fits = (kind != nullptr && kind->fill_object == nullptr) ||
                    record.TrackTypeInfo.discriminant == static_cast<std::uint32_t>(record.Type);
  return fits ? record.Type : track_type::none;
}

rest_of_record print_type(printed_track& track) {
  const track_type type = shown_type(track.record);
  const track_kind* kind = track_kind_of(type);
  if (kind == nullptr) {
    return rest_of_record::printed;
  }
  track.subject = track_kind_type_of(type)->subject;
  return kind->show_detail(track);
}

void print_trackers(const interface_tracking_info__* interfaces) {
  if (interfaces != nullptr) {
    std::printf("\tTracked by:\n");
  }
  for (; interfaces != nullptr; interfaces = interfaces->next) {
    std::printf("\t\t%s\n", interfaces->InterfaceName.c_str());
  }
}

// Texts are cut to their column, so that the table stays one on any terminal.
void print_line(const track_info_brief__& record, const char* object, const char* parameter) {
  std::printf("%-33.32s%-42.41s%-17.16s%-5.4s\n", record.TrackeName.c_str(), object, parameter,
              record.TrackState ? "Up" : "Down");
}

}  // namespace

void print_state(const printed_track& track, bool up) {
  std::printf("\t%s is %s %s", track.subject, up ? "UP" : "DOWN", track.suffix);
}

void print_changes(const track_info__& record) {
  static char text[1024];
  const auto seconds = static_cast<std::time_t>(record.SecondsLastChange);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) {
    return;
  }
  if (std::strftime(text, sizeof text, "%T %Z %a %b %d %Y", &local) == 0) {
    return;
  }
  const char* noun = record.StateChangeCounter == 1 ? "change" : "changes";
  std::printf("\t%d %s, last change %s\n", static_cast<int>(record.StateChangeCounter), noun, text);
}

void ot_display_track_info(const track_info__* records) {
  for (; records != nullptr; records = records->next) {
    std::printf("\nTrack %s \n", records->TrackeName.c_str());
    printed_track track{*records, "", "\n"};
    if (const delayed_state_status__* delayed = records->Delayed; delayed != nullptr) {
      std::snprintf(track.suffix, sizeof track.suffix, ", delayed %s (%d secs remaining)\n",
                    delayed->TrackState ? "Up" : "Down", static_cast<int>(delayed->TimeRemaining));
    }
    if (print_type(track) == rest_of_record::printed) {
      print_trackers(records->TrackingInteraces);
    }
  }
}

void ot_display_track_info_brief(const track_info_brief__* records) {
  std::fputs(
      "Track                            Object                                    Parameter"
      "        Value                \n"
      "-----------------------------------------------------------"
      "---------------------------------------------\n",
      stdout);
  for (; records != nullptr; records = records->next) {
    const track_type type = shown_type(*records);
    if (const track_kind* kind = track_kind_of(type)) {
      print_line(*records, kind->show_object(*records).c_str(),
                 track_kind_type_of(type)->parameter);
    } else {
      print_line(*records, "No Track Type Configured ", "---");
    }
  }
}

}  // namespace ot
