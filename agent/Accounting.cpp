#include <cerrno>

#include "agent/UnixAgent.h"
#include "collect/accounting/AcctSourceLINUX.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

int UnixAgent::IsSystemAcctOn(const char* file) {
  TraceEntry("UnixAgent::IsSystemAcctOn", file);
  const bool wasOff = Os().acct(HostPath(file == nullptr ? "" : file).c_str()) == 0;
  if (wasOff && Os().acct(nullptr) != 0) {
    Message(10100, "acct", errno, "", "", "");
  }
  m_wasAccountingOn = !wasOff;
  TraceExit("UnixAgent::IsSystemAcctOn", wasOff ? 0 : 1);
  return wasOff ? 0 : 1;
}

bool UnixAgent::ShouldStopAccounting() const {
  TraceEntry("UnixAgent::ShouldStopAccounting");
  bool shouldStop = true;
  if (m_wasAccountingOn || AcctSourceUser::AccountingWasOn()) {
    Trace(20, kInformation, "Accounting was enabled before Unix Agent startup.");
    shouldStop = false;
  } else if (m_useAccounting != "Y") {
    Trace(20, kInformation, "We never enabled accounting.");
    shouldStop = false;
  }
  Trace(20, kInformation,
        shouldStop ? "Accounting will be terminated." : "Accounting will not be terminated.");
  TraceExit("UnixAgent::ShouldStopAccounting", shouldStop);
  return shouldStop;
}
