// The operational records: the form in which track information leaves the process. Each struct lies
// in memory exactly as its descriptor's field string says; readers look fields up by the names in
// those strings, so the misspelled ones stay as they are.
//
// Records are zero bytes at first (brec_alloc), and what they point to is theirs (brec_free).
#pragma once

#include <cstdint>
#include <span>

#include "core/track_type.h"
#include "platform/brec.h"
#include "platform/fixed_text.h"

namespace ot {

using track_type__ = track_type;

using record_name = fixed_text<33>;
using record_text = fixed_text<120>;

// One member of a boolean list.
struct bool_track_info__ {
  bool_track_info__* next = nullptr;
  record_name ObjectName;
  bool TrackState = false;  // the member is up
  bool WithNot = false;
};

// One member of a threshold list.
struct threshold_track_info__ {
  threshold_track_info__* next = nullptr;
  record_name ObjectName;
  bool TrackState = false;  // the member is up
  std::uint32_t Weight = 0;
};

struct route_track_info__ {
  std::uint32_t Prefix = 0;        // network byte order
  std::uint32_t PrefixLength = 0;  // the mask, network byte order
  record_text VRF;
  record_text NextHop;
};

struct intf_track_info__ {
  record_text InterfaceName;
};

// One interface whose configuration names the track.
struct interface_tracking_info__ {
  interface_tracking_info__* next = nullptr;
  record_text InterfaceName;
};

struct prb_track_info__ {
  std::uint32_t QmonOpId = 0;
  std::uint32_t RTT = 0;  // milliseconds
  std::uint32_t ReturnCode = 0;
};

struct bfdprb_track_info__ {
  record_text InterfaceName;
  std::uint32_t DestinationAddress = 0;  // network byte order
  std::uint32_t Rate = 0;
  std::uint32_t DebounceCount = 0;
};

struct delayed_state_status__ {
  std::uint32_t TimeRemaining = 0;  // seconds
  bool TrackState = false;          // the waiting state is up
};

// What the track follows. Lists and tracks without a type carry the discriminant `none`.
struct track_type_info {
  std::uint32_t discriminant = 0;
  union {
    route_track_info__ RouteTracks;
    intf_track_info__ InterfaceTracks;
    prb_track_info__ QmonTracks;
    bfdprb_track_info__ BFDTracks;
  };

  track_type_info() noexcept : RouteTracks{} {}
};

struct track_info__ {
  track_info__* next = nullptr;
  record_name TrackeName;
  track_type__ Type{};
  bool TrackState = false;
  std::uint32_t StateChangeCounter = 0;
  std::uint64_t SecondsLastChange = 0;  // wall clock
  track_type_info TrackTypeInfo;
  bool_track_info__* BoolTracks = nullptr;            // boolean lists
  threshold_track_info__* ThresholdTracks = nullptr;  // threshold lists
  std::uint32_t* ThresholdUp = nullptr;
  std::uint32_t* ThresholdDown = nullptr;
  interface_tracking_info__* TrackingInteraces = nullptr;
  delayed_state_status__* Delayed = nullptr;  // while a delay runs
};

struct track_info_brief__ {
  track_info_brief__* next = nullptr;
  record_name TrackeName;
  track_type__ Type{};
  bool TrackState = false;
  track_type_info TrackTypeInfo;
};

extern const brec_descriptor bool_track_info___brec;
extern const brec_descriptor threshold_track_info___brec;
extern const brec_descriptor route_track_info___brec;
extern const brec_descriptor intf_track_info___brec;
extern const brec_descriptor interface_tracking_info___brec;
extern const brec_descriptor prb_track_info___brec;
extern const brec_descriptor bfdprb_track_info___brec;
extern const brec_descriptor delayed_state_status___brec;
extern const brec_descriptor track_info___brec;
extern const brec_descriptor track_info_brief___brec;

// Registers types in this order, all or none. 0, the code of the first failure, or 76 when they are
// registered already (and stay so).
int register_records(std::span<const brec_descriptor* const> descriptors) noexcept;

// Registers the ten types, contained ones first. Before the first record is encoded or decoded, in
// the service and in the show front-end alike. As register_records.
int ot_records_register() noexcept;

}  // namespace ot
