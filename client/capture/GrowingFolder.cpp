#include "client/capture/GrowingFolder.h"

#include <unistd.h>

#include "client/ask/Errors.h"
#include "client/files/RemoveBelow.h"

GrowingFolder::GrowingFolder(const std::string& path) {
  if (const std::string problem = Open(path); !problem.empty()) {
    throw ClientError(problem);
  }
}

GrowingFolder::~GrowingFolder() {
  if (m_isKept) {
    return;
  }
  EmptyFolder(Get());
  if (IsMade()) {
    ::rmdir(Path().c_str());
  }
}

void GrowingFolder::Remove(const char* name) const { RemoveBelow(Get(), name); }
