#pragma once

#include <array>

enum MessageKind : int { kError = 1, kWarning = 2, kInformation = 3 };

/// One numbered message. Some are raised at a second level too; the table holds the usual one.
struct CatalogMessage {
  int number;
  int level;
  MessageKind kind;
  const char* text;
};

/// All numbered messages, by number. Three have no identifier in their text.
inline constexpr std::array kMessageCatalog{
    CatalogMessage{10001, 1, kInformation,
                   "QMTX10001-I Agent Collector has stopped. (host=%1, service=%2)"},
    CatalogMessage{10002, 1, kError, "QMTX10002-E Agent Collector failed to start."},
    CatalogMessage{10003, 1, kInformation,
                   "QMTX10003-I Agent Collector has started. (host=%1, service=%2)"},
    CatalogMessage{10004, 1, kError, "QMTX10004-E Agent Collector stopped abnormally."},
    CatalogMessage{10100, 10, kError,
                   "QMTX10100-E An error occurred in an OS API (%1). (en=%2, arg1=%3, arg2=%4, "
                   "arg3=%5)"},
    CatalogMessage{10101, 1, kError,
                   "QMTX10101-E An error occurred in a function (%1). (rc=%2, arg1=%3, arg2=%4, "
                   "arg3=%5)"},
    CatalogMessage{10102, 1, kError, "QMTX10102-E A signal has been accepted. (sn=%1)"},
    CatalogMessage{10103, 1, kError, "QMTX10103-E An exception occurred. (msg=%1)"},
    CatalogMessage{10104, 10, kWarning, "Failed to access the file or directory(%1)."},
    CatalogMessage{10105, 10, kWarning,
                   "QMTX10105-W The file does not exist in the path specified by using Web "
                   "Console. (PL_MESS) (%1). (en=%2, arg1=%3, arg2=%4, arg3=%5)"},
    CatalogMessage{10106, 10, kWarning,
                   "QMTX10106-W The information to be collected has not been set in Web Console. "
                   "(PD_APP). (arg1=%2, arg2=%3, arg3=%4, arg4=%5)."},
    CatalogMessage{10107, 10, kWarning,
                   "QMTX10107-W The path name specified by using Web Console exceeds the 256-byte "
                   "limit. (%1) (%2)"},
    CatalogMessage{10150, 10, kWarning,
                   "QMTX10150-W An error occurred in an OS API (%1). (en=%2, arg1=%3, arg2=%4, "
                   "arg3=%5)"},
    CatalogMessage{10200, 1, kError, "QMTX10200-E An attempt to initialize a connection failed."},
    CatalogMessage{10201, 1, kError, "QMTX10201-E Initialization of Agent Configuration failed."},
    CatalogMessage{10202, 1, kError, "QMTX10202-E An attempt to initialize a record failed."},
    CatalogMessage{10203, 10, kWarning, "QMTX10203-W Invalid entry in %1."},
    CatalogMessage{10300, 10, kWarning,
                   "QMTX10300-W An attempt to collect a record failed. (record=%1)"},
    CatalogMessage{10498, 40, kInformation,
                   "Started the function (%1). (arg1=%2, arg2=%3, arg3=%4, arg4=%5)."},
    CatalogMessage{10499, 40, kInformation, " Exited the function (%1). (rc=%2)."},
    CatalogMessage{10503, 10, kWarning,
                   "QMTX10503-W Reception of a signal caused the service to stop. (signal=%1)"},
    CatalogMessage{10552, 30, kWarning, "WorkGroup::GetIniFile failed."},
    CatalogMessage{10600, 10, kWarning,
                   "QMTX10600-W An invalid collection event occurred. (record=%1, rc=%2)"},
    CatalogMessage{10700, 10, kWarning,
                   "QMTX10700-W An alarm has begun. (alarm=%1, id=%2, severity=%3, key=%4): %5"},
    CatalogMessage{10701, 10, kInformation,
                   "QMTX10701-I An alarm has ended. (alarm=%1, id=%2, severity=%3, key=%4): %5"},
    CatalogMessage{10702, 10, kWarning, "QMTX10702-W An alarm is off. (alarm=%1): %2"},
};

/// Looks a number up; a number that is not in the catalogue does not compile.
consteval const CatalogMessage& CatalogEntry(int number) {
  for (const CatalogMessage& message : kMessageCatalog) {
    if (message.number == number) {
      return message;
    }
  }
  throw "no such message";
}
