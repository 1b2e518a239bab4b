#pragma once

#include <curl/curl.h>

/// The functions of the HTTP library that are called.
struct CurlCalls {
  decltype(&::curl_global_init) globalInit;
  decltype(&::curl_easy_init) easyInit;
  decltype(&::curl_easy_cleanup) easyCleanup;
  decltype(&::curl_easy_setopt) easySetopt;
  decltype(&::curl_easy_getinfo) easyGetinfo;
  decltype(&::curl_easy_strerror) easyStrerror;
  decltype(&::curl_slist_append) slistAppend;
  decltype(&::curl_slist_free_all) slistFreeAll;
  decltype(&::curl_multi_init) multiInit;
  decltype(&::curl_multi_cleanup) multiCleanup;
  decltype(&::curl_multi_setopt) multiSetopt;
  decltype(&::curl_multi_strerror) multiStrerror;
  decltype(&::curl_multi_add_handle) multiAddHandle;
  decltype(&::curl_multi_remove_handle) multiRemoveHandle;
  decltype(&::curl_multi_socket_action) multiSocketAction;
  decltype(&::curl_multi_info_read) multiInfoRead;
};

/// The library, ready for use. It is loaded by the first call, as it brings thirty others along,
/// 1.4 MB of memory that a gate which sends nothing has no need of. Throws std::runtime_error if it
/// can't be loaded. For one thread.
[[nodiscard]] const CurlCalls& Curl();
