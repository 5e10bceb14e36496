// What the process framework does with the event publisher.
#pragma once

namespace ot {

// Closes the publisher's socket and its subscribers' connections, if there is one; nothing may be
// published afterwards.
void event_publisher_close() noexcept;

}  // namespace ot
