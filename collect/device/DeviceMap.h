#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

/// The names of terminals below /dev by device number; lives as long as the process and only grows.
class DeviceMap {
 public:
  /// The one instance.
  static DeviceMap& Instance();

  /// "tty1", "pts/3", or "??" for a number that no device file has, as all ones. Owned by the map
  /// until `clear`. The first look-up fills the map; one for an unknown number looks for new files
  /// in /dev/pts, one for all ones or a known number reads nothing.
  [[nodiscard]] const char* Name(std::uint64_t rdev);

  /// Takes the names of /dev/pts, then those of /dev.
  void Fill();
  /// Takes the character devices of a folder, named by its plain absolute path below /dev. A name
  /// whose number is known already is dropped. A folder that can't be opened has no names.
  void ScanDirectory(const char* directory);
  /// Forgets all names; the next look-up fills the map again.
  void clear();
  /// Writes "DUMP:" and a line "NAME NUMBER" per entry, the number in hexadecimal.
  void dump(std::FILE* out) const;

 private:
  std::map<std::uint64_t, std::string> m_names;
  bool m_filled = false;
};
