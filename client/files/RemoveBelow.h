#pragma once

// Removing by a descriptor of the folder, so that neither a link in it nor another folder that has
// taken its name meanwhile leads the removal elsewhere. What can't be removed stays.

/// What stands in the folder under `name`, with all that is below it.
void RemoveBelow(int folder, const char* name);
/// All that stands in the folder, which itself stays.
void EmptyFolder(int folder);
