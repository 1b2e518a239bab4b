#pragma once

#include <string>

#include "support/Descriptor.h"

/// Where a capture grows: emptied with the object unless it is kept.
class GrowingFolder {
 public:
  /// `path` is a new folder, or an empty one of the own user that nobody else may write to and no
  /// link leads to. Throws ClientError.
  explicit GrowingFolder(const std::string& path);
  GrowingFolder(const GrowingFolder&) = delete;
  GrowingFolder& operator=(const GrowingFolder&) = delete;
  /// Whoever may rename it can have another folder stand under its name by then: removed is what
  /// is below the folder that was opened.
  ~GrowingFolder();

  /// Absolute, without "/" at its end.
  [[nodiscard]] const std::string& Path() const { return m_path; }
  /// A path by way of the descriptor, for this process alone, that leads into the folder whatever
  /// has its name by now.
  [[nodiscard]] std::string Place() const;
  /// Words for the operator with the folder's name where they have Place().
  [[nodiscard]] std::string Named(std::string words) const;
  /// What stands in it under this name, with all that is below.
  void Remove(const char* name) const;
  void Keep() { m_isKept = true; }

 private:
  /// Why it can't be used; empty if it can.
  [[nodiscard]] std::string Open();

  std::string m_path;
  Descriptor m_folder;
  bool m_isMade = false;  ///< it was not there before
  bool m_isKept = false;
};
