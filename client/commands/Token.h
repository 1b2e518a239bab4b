#pragma once

#include <string>

struct TokenOptions {
  std::string name;
  std::string role = "read";
  std::string file;  ///< to add the line to; empty to print it
};

/// Makes a token: prints it, which is the only time, and the line by which a gate knows it, or adds
/// that to the file, which is made if it is not there. Throws UsageError for a name that can't be
/// one, ClientError if the file has it already or can't be written.
[[nodiscard]] int RunTokenNew(const TokenOptions& options);
