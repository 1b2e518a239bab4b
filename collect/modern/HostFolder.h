#pragma once

#include <dirent.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "support/Descriptor.h"

/// An open folder of the host, whose small files are read relative to it: what is read belongs
/// together even if the folder is replaced meanwhile. Names are those of its entries or relative
/// paths below it. Nothing is traced; each call leaves `errno` of its failure.
class HostFolder {
 public:
  /// One that is not open.
  HostFolder() = default;
  /// Opens the folder of that plain absolute path; not open if that fails.
  explicit HostFolder(const std::string& path);

  [[nodiscard]] bool IsOpen() const { return m_descriptor.IsOpen(); }
  /// A folder below it; not open if it can't be, or leads out of here by a link and `follow` is
  /// false.
  [[nodiscard]] HostFolder Below(const char* name, bool follow = true) const;

  /// What a file of /sys or of a control group holds at most.
  static constexpr std::size_t kUsualLimit = 65536;
  /// Reads a regular file whole into `text`, whose room serves again. False, with an empty text,
  /// for one that can't be read to its end or holds more than `limit` bytes (EFBIG).
  [[nodiscard]] bool Read(const char* name, std::string& text,
                          std::size_t limit = kUsualLimit) const;
  /// The first line of a file without blanks at its ends, with each control character as a blank;
  /// empty if it can't be read, which the second one tells.
  [[nodiscard]] std::string Line(const char* name) const;
  [[nodiscard]] std::optional<std::string> FindLine(const char* name) const;
  /// The whole number, with or without a sign, that is all of a file's first line; kNotTold for
  /// none, as for "max" and for one of more than 18 digits.
  [[nodiscard]] double Number(const char* name) const;
  /// When an entry was changed last, in seconds since 1970; kNotTold without one.
  [[nodiscard]] double ChangeTime(const char* name) const;
  /// The last part of what a link leads to; empty if it is no link.
  [[nodiscard]] std::string LinkName(const char* name) const;

  /// Calls `visit(name, isFolder)` for each entry but "." and ".." in the kernel's order, until it
  /// returns false; `isFolder` is false for a link. The name lives for the call. False if the
  /// folder can't be read.
  bool ForEach(const std::function<bool(const char* name, bool isFolder)>& visit) const;

 private:
  [[nodiscard]] bool IsFolder(const dirent& entry) const;

  Descriptor m_descriptor;
};

/// The number of a text as HostFolder::Number() takes it.
[[nodiscard]] double HostNumber(std::string_view text);
