#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/report/KeptRows.h"
#include "client/report/Uses.h"

/// Which labels of a record tell what a process or a group takes.
struct UseColumns {
  std::string record;
  std::string name;
  std::string more;  ///< empty for none
  std::string id;    ///< tells those of one name apart, empty where names are different
  std::string cpu;   ///< percent of one processor
  std::string memory;
  double memoryUnit = 1;  ///< bytes
  std::vector<std::string> io;
  double ioUnit = 1;  ///< bytes

  [[nodiscard]] std::vector<std::string> Labels() const;
};

/// The records that tell of processes, the best first.
[[nodiscard]] const std::vector<UseColumns>& ProcessColumns();
/// Those of control groups and of workgroups.
[[nodiscard]] const UseColumns& ControlGroupColumns();
[[nodiscard]] const UseColumns& WorkgroupColumns();

/// What Total I/O Kbytes are, for who may take them for traffic of disks.
inline constexpr std::string_view kCallsNote =
    "bytes that calls of processes read and wrote, of pipes and from caches too, which is not what "
    "disks moved.";

/// What a row tells.
[[nodiscard]] Use UseOf(const Json& row, const UseColumns& columns);

/// Who took the most at a time, as "name id (figure), ..." of three at most; nothing if no process
/// was looked at near to it.
[[nodiscard]] std::optional<std::string> WhoAt(KeptRows& rows, UseMeasure measure,
                                               std::int64_t time);
