#include "collect/system/NoHost.h"

#include <string>

#include "support/HostPaths.h"
#include "support/TraceLog.h"

namespace {

/// The place that was told to hold no host; empty after one that did.
std::string g_toldPlace;

}  // namespace

void TellNoHost(bool isNowhere) {
  const std::string place = isNowhere ? HostPath("/proc") : "";
  if (isNowhere && g_toldPlace != place) {
    Trace(10, kError, "There is no host to be read: %1 holds none of the system's files.", place);
  }
  g_toldPlace = place;
}
