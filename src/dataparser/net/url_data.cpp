#include "dataparser/net/url_data.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

namespace dataparser {
namespace {

struct Body {
  std::string data;
  std::size_t limit = 0;
  bool overflow = false;
};

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* user) {
  auto* body = static_cast<Body*>(user);
  const std::size_t length = size * count;
  if (body->data.size() + length > body->limit) {
    body->overflow = true;
    return 0;  // aborts the transfer
  }
  body->data.append(bytes, length);
  return length;
}

bool isWebAddress(std::string_view url) {
  auto startsWith = [url](std::string_view prefix) {
    if (url.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
      char c = url[i];
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
      if (c != prefix[i]) return false;
    }
    return true;
  };
  return startsWith("http://") || startsWith("https://");
}

}  // namespace

std::optional<std::string> dataWithContentsOfURL(std::string_view url,
                                                 const URLDataLimits& limits) {
  if (!isWebAddress(url)) return std::nullopt;
  static std::once_flag initialised;
  std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return std::nullopt;

  const std::string address(url);
  Body body;
  body.limit = limits.maxBytes;
  CURL* handle = curl.get();
  curl_easy_setopt(handle, CURLOPT_URL, address.c_str());
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(handle, CURLOPT_MAXREDIRS, 5L);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS,
                   static_cast<long>(limits.connectTimeout.count()));
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.totalTimeout.count()));
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  if (curl_easy_perform(handle) != CURLE_OK || body.overflow || body.data.empty()) {
    return std::nullopt;
  }
  return std::move(body.data);
}

}  // namespace dataparser
