// libcurl. It brings a TLS library and much else along, some megabytes that a router without HTTP
// operations need not have: it is loaded when the first transfer needs it, and stays.
#pragma once

#include <curl/curl.h>

namespace ot::qmond {

struct curl_functions {
  decltype(&::curl_global_init) global_init;
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;
  decltype(&::curl_multi_init) multi_init;
  decltype(&::curl_multi_setopt) multi_setopt;
  decltype(&::curl_multi_add_handle) multi_add_handle;
  decltype(&::curl_multi_remove_handle) multi_remove_handle;
  decltype(&::curl_multi_socket_action) multi_socket_action;
  decltype(&::curl_multi_info_read) multi_info_read;
  decltype(&::curl_multi_cleanup) multi_cleanup;
};

// The functions, set up; null when the library is not there or cannot be set up, which is said once
// on standard error. Loop's thread.
const curl_functions* load_curl();

}  // namespace ot::qmond
