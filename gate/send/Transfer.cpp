#include "gate/send/Transfer.h"

#include <curl/curl.h>

#include <new>
#include <string_view>
#include <utility>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "gate/access/KeyFiles.h"
#include "gate/send/CurlCalls.h"
#include "gate/send/HttpSender.h"
#include "support/SecretFile.h"

namespace {

/// An answer is short, and what is sent is handed over as it lies.
constexpr long kReceiveBuffer = 4096;
/// All in one file; the library would read a folder that holds each of them three times.
constexpr const char* kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

template <class Value>
void SetOption(void* handle, CURLoption option, Value value) {
  const CURLcode code = Curl().easySetopt(handle, option, value);
  if (code == CURLE_OUT_OF_MEMORY) {
    throw std::bad_alloc();
  }
  if (code != CURLE_OK) {
    throw AccessError(std::string("the request can't be made: ") + Curl().easyStrerror(code));
  }
}

/// The first line of a file that holds a password or a token.
std::string SecretLine(const std::string& path, const char* what) {
  std::string line = SecretLineOf(ReadSecretFile(path, what));
  if (line.empty()) {
    throw AccessError(path + ": its first line is no " + what);
  }
  return line;
}

}  // namespace

void Transfer::FreeHandle::operator()(void* handle) const { Curl().easyCleanup(handle); }

void Transfer::FreeList::operator()(void* list) const {
  Curl().slistFreeAll(static_cast<curl_slist*>(list));
}

Transfer::Transfer(SendRequest request)
    : m_request(std::move(request)), m_handle(Curl().easyInit()) {
  if (m_handle == nullptr) {
    throw std::bad_alloc();
  }
  SetRequest();
  SetLimits();
  SetIdentity();
  SetOption(Handle(), CURLOPT_HTTPHEADER, static_cast<curl_slist*>(m_headers.get()));
}

Transfer::~Transfer() = default;

void Transfer::SetRequest() {
  SetOption(Handle(), CURLOPT_URL, m_request.url.c_str());
  SetOption(Handle(), CURLOPT_USERAGENT, "qmtdmon/" QMT_VERSION);
  if (m_request.method != "GET") {
    SetOption(Handle(), CURLOPT_POSTFIELDS, m_request.body.data());
    SetOption(Handle(), CURLOPT_POSTFIELDSIZE_LARGE,
              static_cast<curl_off_t>(m_request.body.size()));
    SetOption(Handle(), CURLOPT_CUSTOMREQUEST, m_request.method.c_str());
  }
  // A server that does not know it would be waited for.
  AddHeader("Expect:");
  for (const std::string& header : m_request.headers) {
    AddHeader(header);
  }
  SetOption(Handle(), CURLOPT_WRITEFUNCTION, &Transfer::OnBody);
  SetOption(Handle(), CURLOPT_WRITEDATA, static_cast<void*>(this));
  SetOption(Handle(), CURLOPT_HEADERFUNCTION, &Transfer::OnHead);
  SetOption(Handle(), CURLOPT_HEADERDATA, static_cast<void*>(this));
  SetOption(Handle(), CURLOPT_ERRORBUFFER, m_error.data());
}

void Transfer::SetLimits() {
  SetOption(Handle(), CURLOPT_PROTOCOLS_STR, "http,https");
  SetOption(Handle(), CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  SetOption(Handle(), CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  SetOption(Handle(), CURLOPT_PROXY, "");
  SetOption(Handle(), CURLOPT_TIMEOUT_MS, static_cast<long>(m_request.timeout.count()));
  SetOption(Handle(), CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_request.timeout.count()));
  SetOption(Handle(), CURLOPT_BUFFERSIZE, kReceiveBuffer);
  SetOption(Handle(), CURLOPT_NOSIGNAL, 1L);
  // Else the end of a request waits for the look-up of its server's name.
  SetOption(Handle(), CURLOPT_QUICK_EXIT, 1L);
}

void Transfer::SetIdentity() {
  const SendIdentity& identity = m_request.identity;
  if (!identity.tokenFile.empty()) {
    AddHeader("Authorization: Bearer " + SecretLine(identity.tokenFile, "token"));
  } else if (!identity.user.empty()) {
    const std::string password =
        identity.passwordFile.empty() ? "" : SecretLine(identity.passwordFile, "password");
    SetOption(Handle(), CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    SetOption(Handle(), CURLOPT_USERNAME, identity.user.c_str());
    SetOption(Handle(), CURLOPT_PASSWORD, password.c_str());
  }
  if (identity.authority.empty()) {
    if (StampOf(kSystemAuthorities) != FileStamp{}) {
      SetOption(Handle(), CURLOPT_CAINFO, kSystemAuthorities);
      SetOption(Handle(), CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
  } else {
    // The library would wait for the other end of a pipe.
    static_cast<void>(ReadCheckedFile(identity.authority));
    SetOption(Handle(), CURLOPT_CAINFO, identity.authority.c_str());
    // Else the system's would be trusted besides.
    SetOption(Handle(), CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  if (!identity.clientCertificate.empty()) {
    const std::string& key =
        identity.clientKey.empty() ? identity.clientCertificate : identity.clientKey;
    static_cast<void>(ReadCheckedFile(identity.clientCertificate));
    CheckKeyFile(key);
    SetOption(Handle(), CURLOPT_SSLCERT, identity.clientCertificate.c_str());
    SetOption(Handle(), CURLOPT_SSLKEY, key.c_str());
  }
}

void Transfer::AddHeader(const std::string& header) {
  if (header.find_first_of("\r\n") != std::string::npos) {
    throw AccessError("a header of several lines can't be sent");
  }
  curl_slist* list = Curl().slistAppend(static_cast<curl_slist*>(m_headers.get()), header.c_str());
  if (list == nullptr) {
    throw std::bad_alloc();
  }
  static_cast<void>(m_headers.release());
  m_headers.reset(list);
}

std::size_t Transfer::OnBody(char* bytes, std::size_t one, std::size_t count, void* self) {
  auto& transfer = *static_cast<Transfer*>(self);
  const std::string_view piece(bytes, one * count);
  transfer.m_bodySize += piece.size();
  if (transfer.m_bodySize > HttpSender::kMostAnswer) {
    return CURL_WRITEFUNC_ERROR;
  }
  transfer.m_body += piece.substr(0, HttpSender::kMostKept - transfer.m_body.size());
  return piece.size();
}

std::size_t Transfer::OnHead(char* bytes, std::size_t one, std::size_t count, void* self) {
  auto& transfer = *static_cast<Transfer*>(self);
  const std::string_view line(bytes, one * count);
  transfer.m_headSize += line.size();
  if (line == "\r\n" || line == "\n") {
    // One below 200 is followed by another head.
    long status = 0;
    Curl().easyGetinfo(transfer.Handle(), CURLINFO_RESPONSE_CODE, &status);
    transfer.m_status = status >= 200 ? static_cast<int>(status) : 0;
  }
  return transfer.m_headSize > HttpSender::kMostHeads ? CURL_WRITEFUNC_ERROR : one * count;
}

SendResult Transfer::Result(int code) {
  SendResult result;
  const auto known = static_cast<CURLcode>(code);
  if (m_status != 0) {
    curl_off_t retryAfter = 0;
    Curl().easyGetinfo(Handle(), CURLINFO_RETRY_AFTER, &retryAfter);
    result.status = m_status;
    result.retryAfter = std::chrono::seconds(retryAfter);
    result.body = std::move(m_body);
    return result;
  }
  result.isTimeout = known == CURLE_OPERATION_TIMEDOUT;
  if (m_headSize > HttpSender::kMostHeads) {
    result.error = "the server's answer is too long";
  } else if (m_error[0] != '\0') {
    result.error = m_error.data();
  } else {
    result.error =
        known == CURLE_OK ? "the server's answer has no status" : Curl().easyStrerror(known);
  }
  return result;
}
