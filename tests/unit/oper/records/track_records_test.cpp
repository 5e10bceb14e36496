// The operational records: their registration and what their form on the wire keeps of them.
#include "oper/records/track_records.h"

#include <gtest/gtest.h>

#include <string_view>

#include "platform/brec.h"
#include "platform/memory/alloc_faults.h"
#include "platform/status.h"
#include "tests/unit/platform/records/samples.h"

namespace ot {
namespace {

using samples::allocated;
using samples::encoded;
using samples::owned_record;

class track_records : public testing::Test {
 protected:
  void SetUp() override {
    brec_forget_all();
    ASSERT_EQ(ot_records_register(), 0);
  }
  void TearDown() override { brec_forget_all(); }
};

constexpr const brec_descriptor* all_types[] = {
    &bool_track_info___brec,   &threshold_track_info___brec,    &route_track_info___brec,
    &intf_track_info___brec,   &interface_tracking_info___brec, &prb_track_info___brec,
    &bfdprb_track_info___brec, &delayed_state_status___brec,    &track_info___brec,
    &track_info_brief___brec,
};

TEST_F(track_records, the_descriptors_say_where_they_come_from) {
  for (const brec_descriptor* type : all_types) {
    EXPECT_EQ(type->version, 1U) << type->type_name;
    EXPECT_STREQ(type->library, "libobject_tracking_brec_desc.dll");
    EXPECT_TRUE(std::string_view(type->type_name).ends_with("__"));
  }
  EXPECT_NE(std::string_view(track_info___brec.full).find("{TrackeName}33x%S"),
            std::string_view::npos);
  EXPECT_NE(std::string_view(track_info___brec.full).find("{TrackingInteraces}p($5)"),
            std::string_view::npos);
}

// Readers of every version look fields up by these strings, misspelled names included.
TEST_F(track_records, the_field_strings_are_these_to_the_letter) {
  struct row {
    const brec_descriptor& type;
    const char* name;
    const char* full;
    const char* brief;
  };
  for (const row& wanted : {
           row{bool_track_info___brec, "bool_track_info__",
               "$1=L{next}p($1){ObjectName}33x%S{TrackState}b{WithNot}b;", "$1=Lp($1)33x%Sbb;"},
           row{threshold_track_info___brec, "threshold_track_info__",
               "$2=L{next}p($2){ObjectName}33x%S{TrackState}b{Weight}D;", "$2=Lp($2)33x%SbD;"},
           row{route_track_info___brec, "route_track_info__",
               "$3={Prefix}D{PrefixLength}D{VRF}120x%S{NextHop}120x%S;", "$3=DD120x%S120x%S;"},
           row{intf_track_info___brec, "intf_track_info__", "$4={InterfaceName}120x%S;",
               "$4=120x%S;"},
           row{interface_tracking_info___brec, "interface_tracking_info__",
               "$5=L{next}p($5){InterfaceName}120x%S;", "$5=Lp($5)120x%S;"},
           row{prb_track_info___brec, "prb_track_info__", "$6={QmonOpId}D{RTT}D{ReturnCode}D;",
               "$6=DDD;"},
           row{bfdprb_track_info___brec, "bfdprb_track_info__",
               "$7={InterfaceName}120x%S{DestinationAddress}D{Rate}D{DebounceCount}D;",
               "$7=120x%SDDD;"},
           row{delayed_state_status___brec, "delayed_state_status__",
               "$9={TimeRemaining}D{TrackState}b;", "$9=Db;"},
           row{track_info___brec, "track_info__",
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
               "$10=Lp($10)33x%SebDH$8.p($1)p($2)p(D)p(D)p($5)p($9);$1=Lp($1)33x%Sbb;"
               "$2=Lp($2)33x%SbD;$3=DD120x%S120x%S;$4=120x%S;$5=Lp($5)120x%S;$6=DDD;"
               "$7=120x%SDDD;$8=?(,1:$4.,2:$3.,5:$6.,9:$7.,?:v);$9=Db;"},
           row{track_info_brief___brec, "track_info_brief__",
               "$11=L{next}p($11){TrackeName}33x%S{Type}[track_type__]e{TrackState}b"
               "{TrackTypeInfo}$8;$3={Prefix}D{PrefixLength}D{VRF}120x%S{NextHop}120x%S;"
               "$4={InterfaceName}120x%S;$6={QmonOpId}D{RTT}D{ReturnCode}D;"
               "$7={InterfaceName}120x%S{DestinationAddress}D{Rate}D{DebounceCount}D;"
               "$8=?(<discriminant,track_type__>,1:{InterfaceTracks}$4,2:{RouteTracks}$3,"
               "5:{QmonTracks}$6,9:{BFDTracks}$7,?:v);",
               "$11=Lp($11)33x%Seb$8.;$3=DD120x%S120x%S;$4=120x%S;$6=DDD;$7=120x%SDDD;"
               "$8=?(,1:$4.,2:$3.,5:$6.,9:$7.,?:v);"},
       }) {
    EXPECT_STREQ(wanted.type.type_name, wanted.name);
    EXPECT_STREQ(wanted.type.full, wanted.full) << wanted.name;
    EXPECT_STREQ(wanted.type.brief, wanted.brief) << wanted.name;
  }
}

TEST_F(track_records, registering_again_is_refused_and_keeps_the_first) {
  EXPECT_EQ(ot_records_register(), duplicate_key);
  const track_info__ record;
  EXPECT_FALSE(encoded(track_info___brec, &record).empty());
}

TEST_F(track_records, a_failure_registers_nothing) {
  brec_forget_all();
  int status = 0;
  const auto runs = for_each_failing_allocation([&] { status = ot_records_register(); },
                                                [&](std::uint64_t k, bool hit) {
                                                  EXPECT_EQ(status, hit ? no_memory : 0)
                                                      << "allocation " << k;
                                                  const bool_track_info__ record;
                                                  int seen = 0;
                                                  encoded(bool_track_info___brec, &record, &seen);
                                                  EXPECT_EQ(seen, hit ? record_unknown_type : 0);
                                                });
  EXPECT_GT(runs, 10U);
}

TEST_F(track_records, a_detail_record_comes_back) {
  const owned_record<track_info__> record(track_info___brec);
  record->TrackeName.assign("list");
  record->Type = track_type::threshold_weight;
  record->TrackState = true;
  record->StateChangeCounter = 12;
  record->SecondsLastChange = 1700000000;
  record->TrackTypeInfo.discriminant = 6;
  record->ThresholdTracks = allocated(threshold_track_info__{});
  record->ThresholdTracks->ObjectName.assign("member");
  record->ThresholdTracks->Weight = 10;
  record->ThresholdTracks->next = allocated(threshold_track_info__{});
  record->ThresholdUp = allocated<std::uint32_t>(20);
  record->ThresholdDown = allocated<std::uint32_t>(5);
  record->TrackingInteraces = allocated(interface_tracking_info__{});
  record->TrackingInteraces->InterfaceName.assign("eth0");
  record->Delayed = allocated(delayed_state_status__{30, true});
  record->next = brec_alloc<track_info__>();
  record->next->TrackeName.assign("second");

  const auto bytes = encoded(track_info___brec, record.get());
  const owned_record<track_info__> copy(track_info___brec);
  ASSERT_EQ(brec_decode(track_info___brec, bytes, copy.get()), 0);
  EXPECT_EQ(copy->TrackeName.view(), "list");
  EXPECT_EQ(copy->Type, track_type::threshold_weight);
  EXPECT_TRUE(copy->TrackState);
  EXPECT_EQ(copy->StateChangeCounter, 12U);
  EXPECT_EQ(copy->SecondsLastChange, 1700000000U);
  EXPECT_EQ(copy->ThresholdTracks->ObjectName.view(), "member");
  EXPECT_EQ(copy->ThresholdTracks->Weight, 10U);
  EXPECT_NE(copy->ThresholdTracks->next, nullptr);
  EXPECT_EQ(*copy->ThresholdUp, 20U);
  EXPECT_EQ(*copy->ThresholdDown, 5U);
  EXPECT_EQ(copy->TrackingInteraces->InterfaceName.view(), "eth0");
  EXPECT_EQ(copy->Delayed->TimeRemaining, 30U);
  EXPECT_EQ(copy->next->TrackeName.view(), "second");
  EXPECT_EQ(encoded(track_info___brec, copy.get()), bytes);
}

TEST_F(track_records, a_brief_record_carries_the_member_of_its_type) {
  track_info_brief__ route;
  route.TrackTypeInfo.discriminant = 2;
  route.TrackTypeInfo.RouteTracks.Prefix = 0x0000000aU;
  route.TrackTypeInfo.RouteTracks.VRF.assign("blue");
  track_info_brief__ copy;
  ASSERT_EQ(brec_decode(track_info_brief___brec, encoded(track_info_brief___brec, &route), &copy),
            0);
  EXPECT_EQ(copy.TrackTypeInfo.RouteTracks.Prefix, 0x0000000aU);
  EXPECT_EQ(copy.TrackTypeInfo.RouteTracks.VRF.view(), "blue");

  // A list selects no member: what else is in the union does not travel.
  track_info_brief__ list = route;
  list.TrackTypeInfo.discriminant = 6;
  track_info_brief__ empty;
  empty.TrackTypeInfo.discriminant = 6;
  EXPECT_EQ(encoded(track_info_brief___brec, &list), encoded(track_info_brief___brec, &empty));
}

TEST_F(track_records, a_track_name_is_cut_to_32) {
  track_info_brief__ record;
  record.TrackeName.assign("0123456789abcdef0123456789abcdefX");
  EXPECT_EQ(record.TrackeName.view(), "0123456789abcdef0123456789abcdef");
  track_info_brief__ copy;
  ASSERT_EQ(brec_decode(track_info_brief___brec, encoded(track_info_brief___brec, &record), &copy),
            0);
  EXPECT_EQ(copy.TrackeName.view(), "0123456789abcdef0123456789abcdef");
}

}  // namespace
}  // namespace ot
