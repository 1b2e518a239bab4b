#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "node/IniListing.h"

class SectionReader;

/// A file that a setting names.
struct NamedFile {
  std::string path;      ///< empty for none
  std::size_t line = 0;  ///< of the setting
};

/// Who the gate is to those whom it sends to, and whom it trusts. Each is empty for none.
struct SendingKeys {
  std::string user;
  NamedFile passwordFile;
  NamedFile tokenFile;
  NamedFile authority;  ///< certificates, PEM; none: those of the system
  NamedFile clientCertificate;
  NamedFile clientKey;
  bool isFaulty = false;  ///< what is there of them can't be used, or not together
};

/// The keys "User", "Password File", "Token File" and "Certificate Authority" of a section.
[[nodiscard]] SendingKeys ReadSendingKeys(SectionReader& section);
/// Reads "Client Certificate" and "Client Key" as well.
void ReadClientKeys(SectionReader& section, SendingKeys& keys);

/// What is wrong with the files themselves, as they are now: not there, no regular file, too long,
/// a secret that others may reach or a group may write to, no line of text, no PEM, a key that
/// needs a password. Of one that this process may not look at, nothing. A relative path is meant
/// from `folder`; `section` is named in each.
[[nodiscard]] std::vector<IniProblem> KeyFileProblems(const SendingKeys& keys,
                                                      std::string_view section,
                                                      const std::filesystem::path& folder);
