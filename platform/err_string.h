// The texts of status codes.
#pragma once

namespace ot {

// The text of a status code, never null. The text of an unknown code names the code in hexadecimal
// and stays valid until the same thread's next call. Any thread.
const char* err_string(int code) noexcept;

}  // namespace ot
