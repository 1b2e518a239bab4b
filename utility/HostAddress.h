#pragma once

#include <cstdint>
#include <string>

class HostNameRequestManager;

/// A host by its address, its name, or both, for which a manager can be asked.
class HostAddress {
 public:
  /// What a name is while nobody has answered.
  static constexpr const char* kUnavailable = "Unavailable";

  /// A host of that dotted address, whose name is not known yet. The manager is not owned; null if
  /// nobody can be asked.
  HostAddress(HostNameRequestManager* manager, std::string address);
  /// A host of that name, whose address is not known yet.
  static HostAddress OfName(HostNameRequestManager* manager, std::string name);

  /// Looks the name up by the address, for two seconds at most. False if there is no answer yet; an
  /// answer may be that there is no name, an empty text.
  bool ResolveName();
  /// Looks the address up by the name, and then the name, so that both are as the resolver has
  /// them.
  bool ResolveAddress();

  [[nodiscard]] const std::string& Address() const { return m_address; }
  [[nodiscard]] const std::string& Name() const { return m_name; }

 private:
  HostNameRequestManager* m_manager;
  std::string m_address;
  std::string m_name = kUnavailable;
  bool m_isAddressKnown = true;
  bool m_isNameKnown = false;
};

/// The dotted text of an address in network order; empty for 0.
[[nodiscard]] std::string DottedText(std::uint32_t address);
