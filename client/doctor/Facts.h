#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/Answers.h"

// What the doctor has found, for its checks to judge. Names of users and groups are numbers where
// they have none.

struct SocketFacts {
  std::string path;
  int error = 0;  ///< why it can't be looked at, an errno; 0 if it can
  bool isSocket = false;
  std::string owner;
  std::string group;
  bool isRootsGroup = false;  ///< nobody should be put into that one
  bool isGroupWritable = false;
  std::string user;        ///< who asks
  bool isRoot = false;     ///< who asks is root
  bool isOwner = false;    ///< who asks owns it
  bool isInGroup = false;  ///< this session has its group
  bool isListed = false;   ///< the group has this user, whether or not the session knows
};

/// How the daemon's process stands, as the kernel tells everybody.
struct ProcessFacts {
  bool isTold = false;
  std::string user;
  bool isRoot = false;
  std::uint64_t capabilities = 0;  ///< those in force, bit N for capability N
};

struct DaemonFacts {
  std::string fault;  ///< why it gave no status; empty if it did
  Status status;
  std::string historyFile;  ///< empty if none is kept
  std::uint64_t historyBytes = 0;
  std::uint64_t lostBatches = 0;
  ProcessFacts process;
  std::string gateFault;               ///< why it did not tell the gate's settings
  std::string gateMode;                ///< "child", "unit" or "none"
  std::vector<std::string> listen;     ///< where the gate is to listen
  std::string alarmsFault;             ///< why it did not tell its alarms
  std::vector<std::string> alarmsOff;  ///< definitions that are off, with the reason
};

/// Free space where history stands.
struct DiskFacts {
  std::string place;  ///< empty if no history is kept
  int error = 0;
  std::uint64_t freeBytes = 0;  ///< for the daemon's user
  std::uint64_t totalBytes = 0;
  std::optional<std::uint64_t>
      limitBytes;               ///< of the history; none where the settings can't be read
  std::uint64_t heldBytes = 0;  ///< by the history as it stands
};

struct ProgramFacts {
  std::string name;
  std::string path;
  int error = 0;  ///< why it can't be started, an errno
};

/// An address, and what came of asking there.
struct PortFacts {
  enum class Kind { kAnswers, kRefused, kSilent, kNoHttp, kError };

  std::string address;
  Kind kind = Kind::kError;
  std::string fault;  ///< of an error
};

/// A unit of the service manager, in its own words.
struct UnitFacts {
  std::string name;
  std::string load;
  std::string active;
  std::string result;
  std::string enabled;
  std::int64_t mainPid = 0;  ///< of the process that it has started; 0 for none
};

/// A file that the agent reads, held against its own reader.
struct FileFacts {
  std::string path;
  std::string fault;      ///< its first fault; empty if it has none
  bool isChecked = true;  ///< false where it could not be looked at, for the reason in `fault`
};

struct HostFacts {
  std::int64_t now = 0;                ///< seconds since the epoch
  std::optional<bool> isSynchronised;  ///< none where the kernel does not tell
  DiskFacts disk;
  std::vector<ProgramFacts> programs;
  std::vector<PortFacts> ports;  ///< where the gate listens or, if it does not, is to
  bool isOfPackage = false;      ///< the units are those of this daemon and of no other
  bool hasManager = false;       ///< systemd runs
  std::string unitsFault;        ///< why it did not tell its units
  std::vector<UnitFacts> units;
  std::vector<FileFacts> files;
};

struct Facts {
  std::string version;  ///< of this program
  SocketFacts socket;
  DaemonFacts daemon;
  HostFacts host;
};
