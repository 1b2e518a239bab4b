#pragma once

#include <string>

#include "support/OwnFolder.h"

/// Where a capture grows: emptied with the object unless it is kept. Removed is what is below the
/// folder that was opened, whatever has its name by then.
class GrowingFolder : public OwnFolder {
 public:
  /// Opens it as OwnFolder does. Throws ClientError.
  explicit GrowingFolder(const std::string& path);
  GrowingFolder(const GrowingFolder&) = delete;
  GrowingFolder& operator=(const GrowingFolder&) = delete;
  ~GrowingFolder();

  /// What stands in it under this name, with all that is below.
  void Remove(const char* name) const;
  void Keep() { m_isKept = true; }

 private:
  bool m_isKept = false;
};
