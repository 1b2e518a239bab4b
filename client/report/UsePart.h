#pragma once

#include "client/report/Parts.h"

// Who took most of the processors, of memory and of I/O in the stretch.

void FillProcesses(SummaryPart& part, const PartInput& input);
void FillControlGroups(SummaryPart& part, const PartInput& input);
void FillWorkgroups(SummaryPart& part, const PartInput& input);
