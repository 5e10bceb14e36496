// One row a kind of object.
#include "tools/trackctl/explain/objects.h"

#include <optional>
#include <system_error>

#include "platform/common/root_path.h"
#include "platform/common/vrf_requests.h"
#include "platform/event_manager.h"
#include "platform/ipv4.h"
#include "platform/linux/links/client.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/probes/qmon/table_view.h"
#include "platform/linux/routes/lookup.h"
#include "platform/probe_service.h"
#include "sources/probe/statistics.h"
#include "tools/json.h"
#include "tools/trackctl/engine.h"
#include "tools/trackctl/explain/findings.h"
#include "tools/trackctl/explain/namespace.h"
#include "tools/trackctl/kinds/kinds.h"

namespace ot::trackctl::explain {

struct object_reader::sockets {
  const std::string elsewhere = enter_namespace_of_service();
  evm* manager = nullptr;
  std::unique_ptr<ifc_client> links;
  std::unique_ptr<route_lookup> routes;
  std::optional<table_view> operations;
  std::optional<std::string> bfd_engine;

  sockets() = default;
  ~sockets() {
    links.reset();
    the_vrf_devices().close();
    evm_destroy(manager);
  }
  sockets(const sockets&) = delete;
  sockets& operator=(const sockets&) = delete;

  // Null when there is none.
  evm* loop() {
    if (manager == nullptr && evm_create(&manager) != 0) {
      manager = nullptr;
    }
    return manager;
  }
};

namespace {

findings not_readable(const char* what, int status) {
  return {std::string(what) + " cannot be read: " + std::generic_category().message(status)};
}

}  // namespace

object_reader::object_reader() : sockets_(std::make_unique<sockets>()) {}
object_reader::~object_reader() = default;

namespace {

constexpr int no_such_link = 2;

template <typename Sockets>
findings look_at_interface(const track_info__& record, Sockets& sockets) {
  const std::string name{record.TrackTypeInfo.InterfaceTracks.InterfaceName.view()};
  if (sockets.links == nullptr) {
    auto client = std::make_unique<ifc_client>(sockets.loop(), 1);
    if (const int status = client->open(); status != 0) {
      return not_readable("the kernel's interfaces", status);
    }
    sockets.links = std::move(client);
  }
  link_record link;
  const int status = sockets.links->look_up(name.c_str(), &link);
  if (status != 0 && status != no_such_link) {
    return not_readable("the interface", status);
  }
  return interface_findings(name, status == 0 ? &link : nullptr);
}

void ignore_vrf(const vrf_device& /*device*/, bool /*gone*/) {}

template <typename Sockets>
int open_routes(Sockets& sockets) {
  if (sockets.routes != nullptr) {
    return 0;
  }
  auto routes = std::make_unique<route_lookup>();
  int status = the_vrf_devices().open(sockets.loop(), ignore_vrf);
  if (status == 0) {
    status = routes->open();
  }
  if (status == 0) {
    sockets.routes = std::move(routes);
  }
  return status;
}

template <typename Sockets>
findings look_at_route(const track_info__& record, Sockets& sockets) {
  const route_track_info__& route = record.TrackTypeInfo.RouteTracks;
  if (const int status = open_routes(sockets); status != 0) {
    return not_readable("the kernel's routes", status);
  }
  route_look look{.address = route.Prefix,
                  .length = ipv4_mask2prefixlen(route.PrefixLength),
                  .vrf = std::string(route.VRF.view()),
                  .vrf_exists = true,
                  .match = {}};
  const vrf_device* vrf = the_vrf_devices().named(look.vrf);
  look.vrf_exists = vrf != nullptr;
  if (vrf != nullptr) {
    fib_answer answer;
    const int status = sockets.routes->find({vrf->table_id, look.address, look.length}, &answer);
    if (status != 0) {
      return not_readable("the route", status);
    }
    look.match = answer.result;
  }
  return route_findings(look);
}

// The words of the description up to its end.
std::string text_of(const description& about) {
  const auto* first = reinterpret_cast<const char*>(about.data() + word_text);
  return {first, strnlen(first, description_text_size)};
}

template <typename Sockets>
findings look_at_operation(const track_info__& record, Sockets& sockets) {
  operation_look look{.operation = record.TrackTypeInfo.QmonTracks.QmonOpId,
                      .service_runs = true,
                      .code = {},
                      .code_text = {},
                      .what = {}};
  if (!sockets.operations) {
    sockets.operations.emplace();
    (void)sockets.operations->open(root_path(statistics_path));
  }
  const table_view& table = *sockets.operations;
  look.service_runs = table.is_open() && table.live();
  const probe_package texts;
  for (std::uint32_t slot = 0; look.service_runs && slot < table.slots() && !look.code; ++slot) {
    statistics stats{};
    description about{};
    if (table.slot(slot, &stats, &about) && stats[word_op_id] == look.operation) {
      look.code = stats[word_return_code];
      look.code_text = qmon_retCodeToStr(*look.code);
      look.what = text_of(about);
    }
  }
  return operation_findings(look);
}

template <typename Sockets>
findings look_at_session(const track_info__& record, Sockets& sockets) {
  if (!sockets.bfd_engine) {
    sockets.bfd_engine.emplace();
    for (const engine_state& state : read_engine_states()) {
      if (state.service == bfd_kind.service.word && !state.detail.empty()) {
        sockets.bfd_engine = "the BFD engine: " + state.detail;
      }
    }
  }
  const std::string name{record.TrackeName.view()};
  return session_findings(name, bfd_kind.live(name)["session"], *sockets.bfd_engine);
}

}  // namespace

std::vector<std::string> object_reader::look_at(const track_info__& record) {
  struct row {
    track_type type;
    bool of_kernel;
    findings (*look)(const track_info__& record, sockets& with);
  };
  static constexpr row rows[] = {
      {track_type::interface, true, look_at_interface<sockets>},
      {track_type::route, true, look_at_route<sockets>},
      {track_type::probe, false, look_at_operation<sockets>},
      {track_type::bfd, false, look_at_session<sockets>},
  };
  for (const row& each : rows) {
    if (each.type == record.Type) {
      // What another namespace has under that name would be no answer.
      return each.of_kernel && !sockets_->elsewhere.empty() ? findings{sockets_->elsewhere}
                                                            : each.look(record, *sockets_);
    }
  }
  return {};
}

}  // namespace ot::trackctl::explain
