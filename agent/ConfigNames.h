#pragma once

inline constexpr const char* kIniName = "qmtagt.ini";

/// The settings of the ini file, section by section; the tree shows them under the same names.
inline constexpr const char* kAgentSection = "Agent";
inline constexpr const char* kUFSSTimeLabel = "UFSS background collection time";
inline constexpr const char* kMessagesFileLabel = "Messages File";
inline constexpr const char* kWorkgroupFileLabel = "Workgroup File";
inline constexpr const char* kAccountingFileLabel = "Accounting File";
inline constexpr const char* kUseAccountingLabel = "Use Accounting Data";
inline constexpr const char* kLogDiedLabel = "Log Died Processes Data";
inline constexpr const char* kTruncateLabel = "Truncate Accounting File";
inline constexpr const char* kMicrostateLabel = "Microstate accounting";
inline constexpr const char* kDeviceNameCacheLabel = "Device Name Cache";
inline constexpr const char* kDataMaxCountLabel = "User Defined Record DataMaxCount";
/// Not in the tree, and not written back where it is missing.
inline constexpr const char* kGuardModeLabel = "Guard Mode";

/// What the agent makes of the host's files; not in the tree, and not written back either.
inline constexpr const char* kHostSection = "Host";
inline constexpr const char* kProfileLabel = "Profile";
/// Levels of control groups that are rows; beyond 64 none are looked at.
inline constexpr const char* kGroupDepthLabel = "Control Group Depth";
inline constexpr long kMostGroupDepth = 64;
/// "auto", "proc" or "iterator".
inline constexpr const char* kProcessSourceLabel = "Process Source";
/// One in so many processes is read anew in a batch where the iterator tells the rest.
inline constexpr const char* kProcessRefreshLabel = "Process Refresh";
inline constexpr long kUsualProcessRefresh = 10;
inline constexpr long kMostProcessRefresh = 1000;

/// Of the node's section this one alone is the agent's: seconds, 0 for no limit.
inline constexpr const char* kNodeSection = "Node";
inline constexpr const char* kMountTimeoutLabel = "Mount Timeout";

inline constexpr const char* kAddApplicationLabel = "ADD AN APPLICATION MONITORING SETTING";
inline constexpr const char* kDeleteApplicationLabel = "DELETE AN APPLICATION MONITORING SETTING";

/// Bytes of the longest values, terminator included.
inline constexpr unsigned kLongText = 4096;
inline constexpr unsigned kShortText = 2048;

/// Identifiers of the tree's items.
enum ConfigItemId : unsigned short {
  kUFSSTimeId = 3,
  kMessagesFileId = 4,
  kAccountingFileId = 5,
  kUseAccountingId = 6,
  kLogDiedId = 10,
  kTruncateId = 11,
  kDataMaxCountId = 15,
  kAddApplicationId = 21,
  kDeleteApplicationId = 22,
  kFirstApplicationItemId = 1001,
};

/// An application item's identifier is kFirstApplicationItemId with the item in bits 0 and 1, the
/// process in bits 2 to 5 and the application in bits 6 to 11.
enum ApplicationItem : int { kKindItem = 0, kPatternItem = 1, kRangeItem = 2 };
inline constexpr int kProcessShift = 2;
inline constexpr int kProcessMask = 15;
inline constexpr int kApplicationShift = 6;
inline constexpr int kApplicationMask = 63;
/// Applications that the identifiers have room for.
inline constexpr int kMaxShownApplications = kApplicationMask + 1;
