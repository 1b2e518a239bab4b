#pragma once

#include <memory>

#include "client/view/PaneKinds.h"
#include "client/view/Wish.h"

// Lists that are no rows of a record, in the form of such, so that they are sorted and filtered as
// those are.

/// How alarms and records are listed.
[[nodiscard]] const PaneRecord& AlarmListKind();
[[nodiscard]] const PaneRecord& RecordListKind();

/// The alarms that are, or were within a day before the moment.
[[nodiscard]] std::shared_ptr<const SeenRows> AlarmRows(const Sight& sight);
/// The records that the daemon serves, with their schedules.
[[nodiscard]] std::shared_ptr<const SeenRows> RecordRows(const Sight& sight);
