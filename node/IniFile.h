#pragma once

/// The agent's configuration file. Keys are looked up in `section`; a null `subSection` means none.
/// The unused arguments belong to the framework's call and are null or 0.
class CMBIniFile {
 public:
  virtual ~CMBIniFile() = default;

  /// Fills `out` (at most size - 1 characters and a terminator); leaves it empty if the key is
  /// missing. Returns 1 if the key was found, else 0.
  virtual int ReadString(char* out, int size, const char* key, const char* section,
                         const char* subSection, void* unused, int unused2) = 0;
  /// Writes the file at once. 0 means failure: the file then stands as it was.
  [[nodiscard]] virtual int WriteString(const char* value, const char* key, const char* section,
                                        const char* subSection, void* unused, int unused2) = 0;
  /// Leaves `*out` as it was if the key is missing or no number. Returns 1 if it was set, else 0.
  virtual int ReadLong(long* out, const char* key, const char* section, const char* subSection,
                       void* unused) = 0;
  /// As WriteString.
  [[nodiscard]] virtual int WriteLong(long value, const char* key, const char* section,
                                      const char* subSection, void* unused, int unused2) = 0;
};
