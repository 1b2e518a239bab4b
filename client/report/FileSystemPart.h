#pragma once

#include "client/report/Parts.h"

/// File systems by what they grow, and how long the space will last.
void FillFileSystems(SummaryPart& part, const PartInput& input);
