#pragma once

#include <chrono>
#include <string>
#include <vector>

/// By what the gate shows a server who it is, and knows the server: all empty for none of it.
struct SendIdentity {
  std::string user;
  /// Paths. The files of secrets are looked at as keys are, see ReadSecretFile().
  std::string passwordFile;
  std::string tokenFile;  ///< taken before user and password
  std::string authority;  ///< certificates that the server's is checked by, else the system's
  std::string clientCertificate;
  std::string clientKey;  ///< empty: it stands in the file of the certificate

  friend bool operator==(const SendIdentity&, const SendIdentity&) = default;
};

/// What is sent to a server.
struct SendRequest {
  std::string url;  ///< http or https
  std::string method = "POST";
  std::vector<std::string> headers;  ///< "Name: value"
  std::string body;
  SendIdentity identity;
  std::chrono::milliseconds timeout{30000};  ///< for all of it, the look-up of the name included
};

/// What the server has said. Either there is an answer or an error.
struct SendResult {
  int status = 0;     ///< of HTTP, as soon as its heads are whole; 0: they never were
  std::string error;  ///< why there was none, in words
  std::string body;   ///< the answer's first 64 KB or less, hostile as ever
  std::chrono::seconds retryAfter{0};  ///< how long the server wants to be left alone; 0: untold
  bool isTimeout = false;              ///< there was no answer within the request's timeout
};

/// Whether the server has taken what was sent.
[[nodiscard]] inline bool IsTaken(const SendResult& result) {
  return result.status >= 200 && result.status < 300;
}

/// Whether what was sent is never taken by the server, which has looked at it: a 4xx other than 408
/// and 429, and than those of IsTurnedAway().
[[nodiscard]] bool IsRefused(const SendResult& result);
/// Whether it is who sends, or where to, that is refused, not what is sent: 401 to 405, 407, 410.
[[nodiscard]] bool IsTurnedAway(const SendResult& result);

/// What the server has said, for people: its status and the first line of its text, of which 200
/// bytes are shown; or why there was no answer.
[[nodiscard]] std::string WordsOf(const SendResult& result);

/// An address for people and figures: without user, password, query and fragment, which may hold
/// secrets.
[[nodiscard]] std::string ShownUrl(const std::string& url);
/// No more of it than the scheme, the host and the port, where the path may be a secret too.
[[nodiscard]] std::string ServerOf(const std::string& url);
