// What the kinds of probes share: the loop and the sockets and clients that serve all operations.
#pragma once

#include <systemd/sd-event.h>

#include "tools/qmond/kinds/command.h"
#include "tools/qmond/kinds/http.h"
#include "tools/qmond/kinds/icmp.h"
#include "tools/qmond/kinds/kinds.h"
#include "tools/qmond/resolver.h"

namespace ot::qmond {

class probe_host {
 public:
  // Opens what needs privileges; afterwards they may be dropped.
  explicit probe_host(sd_event* event_loop)
      : loop(event_loop),
        icmp_v4(event_loop, AF_INET),
        icmp_v6(event_loop, AF_INET6),
        http(event_loop),
        names(event_loop),
        commands(event_loop) {}

  sd_event* const loop;
  icmp_socket icmp_v4;
  icmp_socket icmp_v6;
  http_client http;
  resolver names;
  command_slots commands;
};

// Starts an operation of any kind: resolves its host's name, if it is one, and then probes it.
started start_probe(probe_host& host, const operation& what, probe_done done);

}  // namespace ot::qmond
