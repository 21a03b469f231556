#pragma once

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"

// Small persistent settings of modules and hosts: integers and texts, by section and entry, for the machine
// or for the user. A section lies below the registry path; sections and entries compare without case, by
// Unicode. Null texts count as empty.
//
// Each hive is one file: SIGWEAVE_USER_HIVE and SIGWEAVE_MACHINE_HIVE name them; else they are
// sigweave/profile.db in the user's configuration folder (XDG_CONFIG_HOME, HOME/.config) and
// /var/lib/sigweave/profile.db. A save is on the disk when it returns, and saves of several processes do not
// disturb each other. Any thread, also after a fork.
//
// Failures are silent: loads answer the default or the empty text, saves and deletes do nothing.

// Sets the path that comes before every section, and answers the one before. The section is appended
// directly: end the path with a backslash. Process-wide, without a lock: set it at start-up.
TC_API TCString ChangeRegistryPath(const char* path);
// Valid until the path is changed.
TC_API const char* GetRegistryPath();

// Whether the entry exists and is no longer than 255 bytes. A text counts with its terminating zero; longer
// ones are deliberately not seen, for the modules that rely on it.
TC_API bool ExistsMachineProfileKey(const char* section, const char* entry);
TC_API bool ExistsUserProfileKey(const char* section, const char* entry);

// The default is for an entry that is missing or a text.
TC_API int LoadMachineProfileInt(const char* section, const char* entry, int defaultValue);
TC_API int LoadUserProfileInt(const char* section, const char* entry, int defaultValue);
TC_API void SaveMachineProfileInt(const char* section, const char* entry, int value);
TC_API void SaveUserProfileInt(const char* section, const char* entry, int value);
// Deleting makes the section, empty, when there was none; of entries of any type.
TC_API void DeleteMachineProfileInt(const char* section, const char* entry);
TC_API void DeleteUserProfileInt(const char* section, const char* entry);

// Empty for an entry that is missing or an integer.
TC_API TCString LoadMachineProfileString(const char* section, const char* entry);
TC_API TCString LoadUserProfileString(const char* section, const char* entry);
TC_API void SaveMachineProfileString(const char* section, const char* entry, const char* value);
TC_API void SaveUserProfileString(const char* section, const char* entry, const char* value);
TC_API void DeleteMachineProfileString(const char* section, const char* entry);
TC_API void DeleteUserProfileString(const char* section, const char* entry);
