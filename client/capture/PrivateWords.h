#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/capture/CaptureFolder.h"
#include "json/Json.h"

/// The words that tell of people and places.
struct PrivateWords {
  std::set<std::string> names;    ///< of users, groups and hosts
  std::set<std::string> serials;  ///< long enough to be told from other words
};

/// Collects them from a capture and, where that is of this host, from the system.
class WordCollector {
 public:
  /// A file of a sample's tree, by its path below the tree.
  void TakeFile(std::string_view path, std::string_view text);
  /// A line of the answers to calls.
  void TakeCall(std::string_view question, std::string_view answer);
  /// A row of a record: the users, groups and hosts that it names. Those of numbers that are not
  /// people's, by the row or by the system, are not taken; others are, as they may be gone.
  void TakeRow(const Json& row);
  /// A host's name and its first part.
  void TakeHost(const std::string& name);
  /// The users and groups that the system names.
  void TakeSystem();
  [[nodiscard]] const PrivateWords& Words() const { return m_words; }

 private:
  void TakeName(const std::string& name, std::string_view number);
  void TakeAccounts(std::string_view text);
  void TakeServers(std::string_view text);
  void TakeNameOfRow(const std::string& name, const Json* number);

  PrivateWords m_words;
};

/// Whether a file of a tree holds a serial number and nothing else.
[[nodiscard]] bool HoldsSerial(std::string_view path);
/// Whether the kernel alone has named this path below a tree, as it has not the control groups.
[[nodiscard]] bool IsKernelPath(std::string_view path);
/// The addresses of this host's interfaces, without those of the loopback.
struct OwnAddresses {
  std::vector<std::string> texts;
  std::vector<std::string> bytes;  ///< the same, in the order of the network
};
[[nodiscard]] OwnAddresses ReadOwnAddresses();
