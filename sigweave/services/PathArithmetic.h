#pragma once

#include <string>
#include <string_view>

#include "sigweave/foundation/TCString.h"
#include "sigweave/platform/Export.h"
#include "sigweave/platform/Framework.h"

// Paths as texts; nothing looks at a disk. A path is written with backslashes (slashes are taken too and
// answered as backslashes, runs of them as one) and has at most 259 bytes: what is longer is cut, between two
// characters. Whoever hands a path to the operating system converts it with `tc::NativePath`. A null path is
// empty. Free of state; any thread.
//
// A path is absolute when it has a root: \\server\, a letter with a colon, or a single leading backslash.

// The path in its canonical form ("." and ".." resolved, no backslash at its end: deliberately also not for
// the root folder "\", which becomes the empty path, for settings that join it with names); a relative one
// follows the base folder and a backslash, so below an empty base it starts at the root folder, and below a
// relative one it stays relative. An empty path stays empty. ".." never climbs above a root: what is left of
// it stays in the path, and so does the "." of "C:." and "C:.\x".
TC_API TCString MakeAbsPath(const char* basePath, const char* path);
TC_API CString MakeAbsPath(const CString& basePath, const CString& path);

// The path below the base folder, with a leading ".\"; "." for that folder itself, and any other place as
// its canonical absolute path. Compares without case, deliberately: settings made on systems that do not tell
// cases apart must find their folder again.
TC_API TCString MakeRelPath(const char* basePath, const char* path);
TC_API CString MakeRelPath(const CString& basePath, const CString& path);

// Internal.
namespace tc {

// The path with single backslashes, cut.
std::string PreparePath(const char* path);

// The bytes of the root of a prepared path; 0: the path is relative.
std::size_t PathRootLength(std::string_view prepared);

// Where the last backslash of a prepared path is; npos: nowhere.
std::size_t LastSeparator(std::string_view prepared);

// Whether one of its characters is one of the set's, which are ASCII.
bool HasOneOf(std::string_view text, std::string_view set);

}  // namespace tc
