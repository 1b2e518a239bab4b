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
};

/// Whether the server has taken what was sent.
[[nodiscard]] inline bool IsTaken(const SendResult& result) {
  return result.status >= 200 && result.status < 300;
}

/// What the server has said, for people: its status and the first line of its text, of which 200
/// bytes are kept; or why there was no answer.
[[nodiscard]] std::string WordsOf(const SendResult& result);
