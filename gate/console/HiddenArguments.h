#pragma once

#include "json/Json.h"

/// Makes null what processes were started with, wherever in the value a member has the label of
/// such a field. Of answers that the daemon can't be asked to give without.
void HideArguments(Json& value);
