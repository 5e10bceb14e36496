// The descriptors of the operational records and their registration. The strings are the records'
// contract with every reader, in whatever version of this program: a field is never renamed, moved
// or retyped under the same type name. The nested numbers mean the same type in every string.
#include "oper/records/track_records.h"

#include <cstddef>
#include <type_traits>

namespace ot {
namespace {

constexpr const char* descriptor_library = "libobject_tracking_brec_desc.dll";

constexpr brec_nested nested_of_track_info[] = {
    {1, "bool_track_info__"},   {2, "threshold_track_info__"},    {3, "route_track_info__"},
    {4, "intf_track_info__"},   {5, "interface_tracking_info__"}, {6, "prb_track_info__"},
    {7, "bfdprb_track_info__"}, {9, "delayed_state_status__"},
};
constexpr brec_nested nested_of_track_info_brief[] = {
    {3, "route_track_info__"},
    {4, "intf_track_info__"},
    {6, "prb_track_info__"},
    {7, "bfdprb_track_info__"},
};

template <typename Record>
constexpr brec_descriptor describe(const char* type_name, const char* full, const char* brief,
                                   std::span<const brec_nested> nested = {}) noexcept {
  static_assert(std::is_standard_layout_v<Record> && std::is_trivially_copyable_v<Record>);
  return {1, type_name, descriptor_library, nested, sizeof(Record), full, brief};
}

}  // namespace

const brec_descriptor bool_track_info___brec = describe<bool_track_info__>(
    "bool_track_info__", "$1=L{next}p($1){ObjectName}33x%S{TrackState}b{WithNot}b;",
    "$1=Lp($1)33x%Sbb;");

const brec_descriptor threshold_track_info___brec = describe<threshold_track_info__>(
    "threshold_track_info__", "$2=L{next}p($2){ObjectName}33x%S{TrackState}b{Weight}D;",
    "$2=Lp($2)33x%SbD;");

const brec_descriptor route_track_info___brec = describe<route_track_info__>(
    "route_track_info__", "$3={Prefix}D{PrefixLength}D{VRF}120x%S{NextHop}120x%S;",
    "$3=DD120x%S120x%S;");

const brec_descriptor intf_track_info___brec =
    describe<intf_track_info__>("intf_track_info__", "$4={InterfaceName}120x%S;", "$4=120x%S;");

const brec_descriptor interface_tracking_info___brec = describe<interface_tracking_info__>(
    "interface_tracking_info__", "$5=L{next}p($5){InterfaceName}120x%S;", "$5=Lp($5)120x%S;");

const brec_descriptor prb_track_info___brec =
    describe<prb_track_info__>("prb_track_info__", "$6={QmonOpId}D{RTT}D{ReturnCode}D;", "$6=DDD;");

const brec_descriptor bfdprb_track_info___brec = describe<bfdprb_track_info__>(
    "bfdprb_track_info__", "$7={InterfaceName}120x%S{DestinationAddress}D{Rate}D{DebounceCount}D;",
    "$7=120x%SDDD;");

const brec_descriptor delayed_state_status___brec = describe<delayed_state_status__>(
    "delayed_state_status__", "$9={TimeRemaining}D{TrackState}b;", "$9=Db;");

const brec_descriptor track_info___brec = describe<track_info__>(
    "track_info__",
    "$10=L{next}p($10){TrackeName}33x%S{Type}[track_type__]e{TrackState}b"
    "{StateChangeCounter}D{SecondsLastChange}H{TrackTypeInfo}$8{BoolTracks}p($1)"
    "{ThresholdTracks}p($2){ThresholdUp}p(D){ThresholdDown}p(D){TrackingInteraces}p($5)"
    "{Delayed}p($9);$1=L{next}p($1){ObjectName}33x%S{TrackState}b{WithNot}b;"
    "$2=L{next}p($2){ObjectName}33x%S{TrackState}b{Weight}D;"
    "$3={Prefix}D{PrefixLength}D{VRF}120x%S{NextHop}120x%S;$4={InterfaceName}120x%S;"
    "$5=L{next}p($5){InterfaceName}120x%S;$6={QmonOpId}D{RTT}D{ReturnCode}D;"
    "$7={InterfaceName}120x%S{DestinationAddress}D{Rate}D{DebounceCount}D;"
    "$8=?(<discriminant,track_type__>,1:{InterfaceTracks}$4,2:{RouteTracks}$3,"
    "5:{QmonTracks}$6,9:{BFDTracks}$7,?:v);$9={TimeRemaining}D{TrackState}b;",
    "$10=Lp($10)33x%SebDH$8.p($1)p($2)p(D)p(D)p($5)p($9);$1=Lp($1)33x%Sbb;$2=Lp($2)33x%SbD;"
    "$3=DD120x%S120x%S;$4=120x%S;$5=Lp($5)120x%S;$6=DDD;$7=120x%SDDD;"
    "$8=?(,1:$4.,2:$3.,5:$6.,9:$7.,?:v);$9=Db;",
    nested_of_track_info);

const brec_descriptor track_info_brief___brec = describe<track_info_brief__>(
    "track_info_brief__",
    "$11=L{next}p($11){TrackeName}33x%S{Type}[track_type__]e{TrackState}b{TrackTypeInfo}$8;"
    "$3={Prefix}D{PrefixLength}D{VRF}120x%S{NextHop}120x%S;$4={InterfaceName}120x%S;"
    "$6={QmonOpId}D{RTT}D{ReturnCode}D;"
    "$7={InterfaceName}120x%S{DestinationAddress}D{Rate}D{DebounceCount}D;"
    "$8=?(<discriminant,track_type__>,1:{InterfaceTracks}$4,2:{RouteTracks}$3,"
    "5:{QmonTracks}$6,9:{BFDTracks}$7,?:v);",
    "$11=Lp($11)33x%Seb$8.;$3=DD120x%S120x%S;$4=120x%S;$6=DDD;$7=120x%SDDD;"
    "$8=?(,1:$4.,2:$3.,5:$6.,9:$7.,?:v);",
    nested_of_track_info_brief);

// Where a field string puts what its reader takes at these places.
static_assert(offsetof(track_info__, TrackeName) == 8);
static_assert(offsetof(track_info__, Type) == 44);
static_assert(offsetof(track_info__, TrackState) == 48);
static_assert(offsetof(track_info__, StateChangeCounter) == 52);
static_assert(offsetof(track_info__, SecondsLastChange) == 56);
static_assert(offsetof(track_info__, TrackTypeInfo) == 64);
static_assert(offsetof(track_info__, BoolTracks) == 320);
static_assert(offsetof(track_info__, ThresholdTracks) == 328);
static_assert(offsetof(track_info__, ThresholdUp) == 336);
static_assert(offsetof(track_info__, ThresholdDown) == 344);
static_assert(offsetof(track_info__, TrackingInteraces) == 352);
static_assert(offsetof(track_info__, Delayed) == 360);
static_assert(sizeof(track_info__) == 368);
static_assert(offsetof(track_info_brief__, TrackTypeInfo) == 52);
static_assert(sizeof(track_info_brief__) == 304);
static_assert(offsetof(track_type_info, RouteTracks) == 4 && sizeof(track_type_info) == 252);
static_assert(offsetof(threshold_track_info__, TrackState) == 41);
static_assert(offsetof(threshold_track_info__, Weight) == 44);
static_assert(sizeof(threshold_track_info__) == 48);
static_assert(offsetof(bool_track_info__, WithNot) == 42 && sizeof(bool_track_info__) == 48);
static_assert(offsetof(route_track_info__, NextHop) == 128 && sizeof(route_track_info__) == 248);
static_assert(sizeof(intf_track_info__) == 120 && sizeof(interface_tracking_info__) == 128);
static_assert(offsetof(bfdprb_track_info__, DestinationAddress) == 120);
static_assert(sizeof(bfdprb_track_info__) == 132 && sizeof(prb_track_info__) == 12);
static_assert(offsetof(delayed_state_status__, TrackState) == 4);
static_assert(sizeof(delayed_state_status__) == 8);

int register_records(std::span<const brec_descriptor* const> descriptors) noexcept {
  int status = brec_register_start();
  if (status != 0) return status;
  for (const brec_descriptor* descriptor : descriptors) {
    status = brec_register(*descriptor);
    if (status != 0) {
      brec_register_abort();
      return status;
    }
  }
  return brec_register_end();
}

int ot_records_register() noexcept {
  static constexpr const brec_descriptor* in_order[] = {
      &bool_track_info___brec,   &threshold_track_info___brec,    &route_track_info___brec,
      &intf_track_info___brec,   &interface_tracking_info___brec, &prb_track_info___brec,
      &bfdprb_track_info___brec, &delayed_state_status___brec,    &track_info___brec,
      &track_info_brief___brec,
  };
  return register_records(in_order);
}

}  // namespace ot
