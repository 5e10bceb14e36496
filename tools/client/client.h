// The C interface's own side: a client, and how what goes wrong becomes a number and a text.
// Nothing throws into the caller's program.
#pragma once

#include <exception>
#include <new>
#include <string>

#include "tools/client/object_tracking.h"
#include "tools/trackctl/command.h"

struct otrack_client {
  std::string error;
};

namespace ot::client {

// Keeps the text where there is room for it; returns the number.
inline int fail(otrack_client& client, int error, const char* text) noexcept {
  try {
    client.error = text;
  } catch (const std::bad_alloc&) {
    client.error.clear();
  }
  return error;
}

// OTRACK_OK, or what went wrong in `body`, kept in the client.
template <typename Body>
int attempt(otrack_client& client, const Body& body) noexcept {
  try {
    client.error.clear();
    body();
    return OTRACK_OK;
  } catch (const trackctl::unanswered& reason) {
    return fail(client, OTRACK_ERR_TIMEOUT, reason.what());
  } catch (const trackctl::memory_lacking& reason) {
    return fail(client, OTRACK_ERR_NO_MEMORY, reason.what());
  } catch (const trackctl::failure& reason) {
    const int error = reason.status == trackctl::exit_usage        ? OTRACK_ERR_INVALID
                      : reason.status == trackctl::exit_no_service ? OTRACK_ERR_NO_SERVICE
                                                                   : OTRACK_ERR_REFUSED;
    return fail(client, error, reason.what());
  } catch (const std::bad_alloc&) {
    return fail(client, OTRACK_ERR_NO_MEMORY, otrack_strerror(OTRACK_ERR_NO_MEMORY));
  } catch (const std::exception& reason) {
    return fail(client, OTRACK_ERR_REFUSED, reason.what());
  } catch (int error) {  // whose text is kept already
    return error;
  }
}

// The same for a client that a program gives, which may be null.
template <typename Body>
int attempt(otrack_client* client, const Body& body) noexcept {
  return client == nullptr ? OTRACK_ERR_INVALID : attempt(*client, body);
}

// Throws, as what `attempt` takes for a wrong argument.
inline void refuse_unless(bool right, const char* text) {
  if (!right) {
    throw trackctl::failure(trackctl::exit_usage, text);
  }
}

// Throws for a null pointer, which stands where none is allowed, and for a flag that the call has
// no use for.
inline void check_pointer(const void* pointer) {
  refuse_unless(pointer != nullptr, "a pointer is null");
}
inline void check_flags(unsigned flags, unsigned known) {
  refuse_unless((flags & ~known) == 0, "a flag is unknown to this call");
}

}  // namespace ot::client
