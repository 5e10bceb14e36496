// What the FIB tells: changes, the loss and the return of its connection. Main thread.
#pragma once

#include "platform/fib_client.h"

namespace ot {

// A registered prefix may have changed: looks it up again and passes a changed reachability on.
void ot_fec_notif_handler(const rtclient_notification* notification);

// The connection is lost: entries, states and registrations stay as they are.
void ot_fec_disconnect_handler();

// The connection is up: every route with a known VRF is registered again, then the configuration
// that waited is applied in its order. A failing registration ends it, and the configuration waits
// for the next reconnection.
void ot_fec_reconnect_handler();

}  // namespace ot
