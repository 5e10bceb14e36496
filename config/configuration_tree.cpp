// The tree as tables. Nodes refer to each other by index. The number below a type node is the track
// type; the one below val_up is a threshold list's up limit, those below rate and debounce_count a
// BFD session's settings.

#include "config/configuration_tree.h"

#include "config/delays.h"
#include "config/lifecycle.h"
#include "config/verifiers.h"
#include "lists/list_config.h"
#include "lists/threshold_list.h"
#include "platform/status.h"
#include "sources/bfd/config.h"
#include "sources/interface/config.h"
#include "sources/probe/config.h"
#include "sources/route/config.h"

namespace ot {
namespace {

constexpr std::int32_t none = -1;

constexpr ledger_tree_node inner(const char* name, std::int32_t child,
                                 std::int32_t sibling) noexcept {
  return {name, ledger_node_kind::literal, child, sibling, none, 1};
}
constexpr ledger_tree_node any_name(std::int32_t child) noexcept {
  return {nullptr, ledger_node_kind::name, child, none, none, 1};
}
constexpr ledger_tree_node any_number(std::int32_t child) noexcept {
  return {nullptr, ledger_node_kind::number, child, none, none, 1};
}
constexpr ledger_tree_node leaf(const char* name, std::int32_t sibling,
                                std::int32_t handler) noexcept {
  return {name, ledger_node_kind::literal, none, sibling, handler, 0};
}

constexpr std::uint32_t number_item = ledger_row_handled;
constexpr std::uint32_t text_item = ledger_row_handled | ledger_row_text;
constexpr std::uint32_t tuple_item = ledger_row_handled | ledger_row_tuple;

}  // namespace

const std::array<ledger_tree_node, 39> configuration_nodes = {{
    /*  0 */ inner("track", 1, none),
    /*  1 */ any_name(2),
    /*  2 */ leaf("a", 3, 0),
    /*  3 */ leaf("delay_up", 4, 1),
    /*  4 */ leaf("delay_down", 5, 2),
    /*  5 */ inner("type", 6, none),
    /*  6 */ inner("list", 11, 7),
    /*  7 */ inner("interface", 20, 8),
    /*  8 */ inner("route", 24, 9),
    /*  9 */ inner("prb", 29, 10),
    /* 10 */ inner("bfdprb", 31, none),
    /* 11 */ any_number(12),
    /* 12 */ leaf("a", 13, 3),
    /* 13 */ inner("object", 15, 14),
    /* 14 */ inner("thld_limits", 17, none),
    /* 15 */ any_name(16),
    /* 16 */ leaf("a", none, 4),
    /* 17 */ inner("val_up", 18, none),
    /* 18 */ any_number(19),
    /* 19 */ leaf("val_dn", none, 5),
    /* 20 */ any_number(21),
    /* 21 */ leaf("a", 22, 6),
    /* 22 */ inner("info", 23, none),
    /* 23 */ leaf("interface", none, 7),
    /* 24 */ any_number(25),
    /* 25 */ leaf("a", 26, 8),
    /* 26 */ inner("info", 27, none),
    /* 27 */ leaf("ip_address", 28, 9),
    /* 28 */ leaf("vrf", none, 10),
    /* 29 */ any_number(30),
    /* 30 */ leaf("op_id", none, 11),
    /* 31 */ any_number(32),
    /* 32 */ inner("rate", 33, none),
    /* 33 */ any_number(34),
    /* 34 */ inner("debounce_count", 35, none),
    /* 35 */ any_number(36),
    /* 36 */ inner("Interface", 37, none),
    /* 37 */ any_name(38),
    /* 38 */ leaf("destaddress", none, 12),
}};

// A row without an apply function belongs to a source that this build does not have; the ledger
// refuses its items.
const std::array<ledger_registration, 13> configuration_handlers = {{
    {"track/*/a", number_item, object_tracking_track_verify, object_tracking_track_apply},
    {"track/*/delay_up", number_item, object_tracking_default_verify,
     object_tracking_delay_up_apply},
    {"track/*/delay_down", number_item, object_tracking_default_verify,
     object_tracking_delay_down_apply},
    {"track/*/type/list/#/a", number_item, object_tracking_type_verify, ledger_nothing_to_apply},
    {"track/*/type/list/#/object/*/a", number_item, object_tracking_type_list_object_verify,
     object_tracking_type_list_object_apply},
    {"track/*/type/list/#/thld_limits/val_up/#/val_dn", number_item,
     object_tracking_type_threshold_object_limits_verify,
     object_tracking_type_threshold_object_crt_apply},
    {"track/*/type/interface/#/a", number_item, object_tracking_type_verify,
     ledger_nothing_to_apply},
    {"track/*/type/interface/#/info/interface", text_item, object_tracking_type_interface_verify,
     object_tracking_type_interface_apply},
    {"track/*/type/route/#/a", number_item, object_tracking_type_verify, ledger_nothing_to_apply},
    {"track/*/type/route/#/info/ip_address", tuple_item, object_tracking_verify_ip_mask_and_type,
     object_tracking_type_route_ip_apply},
    {"track/*/type/route/#/info/vrf", text_item, object_tracking_default_verify,
     object_tracking_type_route_vrf_apply},
    {"track/*/type/prb/#/op_id", number_item, object_tracking_prb_verify,
     object_tracking_type_prb_apply},
    {"track/*/type/bfdprb/#/rate/#/debounce_count/#/Interface/*/destaddress", tuple_item,
     object_tracking_type_bfdprb_verify, object_tracking_type_bfdprb_apply},
}};

int ot_configuration_register() noexcept {
  return ledger_config_register(configuration_root, configuration_nodes, configuration_handlers);
}

int ot_configuration_replay() {
  const int failures = ledger_config_replay(configuration_root);
  return failures < 0 ? ledger_storage_failure : status_ok;
}

}  // namespace ot
