#pragma once

#include <grp.h>
#include <pwd.h>

/// The identity that stands for "not set".
inline constexpr int kNoIdentity = -999;

/// The name of a user: "N/S" for kNoIdentity, "N/A uid = 123" if the system knows no such user,
/// which is asked again at each look-up. A name found once is kept until the caches are cleared;
/// see also RenewOldNames(). `entry` gets what the system was asked for, null where it was not
/// asked; it may be null. The text is owned here; the "N/A" text lives until the next one.
[[nodiscard]] const char* UserName(passwd** entry, int uid);
/// The same of a group, with "N/A gid = 123".
[[nodiscard]] const char* GroupName(group** entry, int gid);

/// The same, with null for an identity that has no name.
[[nodiscard]] const char* KnownUserName(int uid);
[[nodiscard]] const char* KnownGroupName(int gid);

/// Has all names asked for anew at their next look-up if the files of users or groups are others
/// than at the last call or an hour has gone by since, as who else may know names tells of no
/// change. From the first call on an identity without a name is kept as well, for a minute, and a
/// name that the system can't tell any more stays while it is looked up. Texts handed out before
/// are no longer valid.
void RenewOldNames();
/// Forget all names; texts handed out are no longer valid.
void ClearUserNames();
void ClearGroupNames();
