#pragma once

#include <stdexcept>
#include <string>

/// The exit values of the program.
enum ExitValue : int {
  kExitDone = 0,
  kExitFailed = 1,
  kExitUsage = 2,
  kExitRefused = 3,    ///< the agent refused a setting's new value
  kExitNotWritten = 4  ///< the new value did not reach the daemon's file
};

/// What failed, in words for the operator. Ends the command with kExitFailed.
class ClientError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws a ClientError that names the path and why, by errno, it can't be used.
[[noreturn]] void FailErrno(const std::string& path);

/// The daemon understood the request and answered it with an error object.
class RefusedError : public ClientError {
 public:
  using ClientError::ClientError;
};

/// The command line asks for something that cannot be meant. Ends with kExitUsage.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Nobody reads the standard output any more: the command ends without a word.
struct OutputClosed {};

/// A signal asked the command to end.
struct Interrupted {};
