// SPDX-License-Identifier: GPL-3.0-or-later
// Free functions on path strings: the parts of a path, and paths relative to
// another place, as the project file and the link messages store them.
//
// Stored paths come from either kind of system, so reading accepts both '\\'
// and '/' as separators and a drive ("c:") before the first one, whatever the
// rules in use. The rules decide only what is written: Windows rules fold case
// and write '\\'; POSIX rules keep case (lower-casing on a case-sensitive file
// system would lose files) and write '/'.
#pragma once

#include <string>
#include <string_view>

enum class PathPolicy { Windows, Posix };

#ifdef _WIN32
inline constexpr PathPolicy kHostPathPolicy = PathPolicy::Windows;
#else
inline constexpr PathPolicy kHostPathPolicy = PathPolicy::Posix;
#endif

// The separator the rules write.
constexpr char PathSeparator(PathPolicy policy) {
  return policy == PathPolicy::Windows ? '\\' : '/';
}

// Drive ("c:" or empty), directory (up to and with the last separator), name,
// and extension (from the last '.' of the file part, with the dot). Any output
// may be null. Putting the four back together gives the path.
void SplitPath(std::string_view path,
               std::string* drive,
               std::string* dir,
               std::string* name,
               std::string* ext);

// Drive (a ':' is added when missing), dir (a separator is added when it ends
// in none), name, ext (a '.' is added when missing). Throws std::runtime_error
// "drive too long" above 3 characters, "path too long", "file name too long"
// or "extension too long" above 256.
std::string MakePath(std::string_view drive,
                     std::string_view dir,
                     std::string_view name,
                     std::string_view ext,
                     PathPolicy policy = kHostPathPolicy);

// `path` with its extension replaced by `ext` (with or without the dot; empty
// removes it). Throws std::runtime_error "too long extension" when `ext` has
// 256 characters or more, or as MakePath does.
std::string ChangeExtension(std::string_view path,
                            std::string_view ext,
                            PathPolicy policy = kHostPathPolicy);

// Drive and directory of a file or folder path, with the trailing separator:
// "c:\a\b.bmp" and "c:\a\b\" both give "c:\a\". Empty for an empty path.
std::string Directory(std::string_view path);

// The name without directory and extension.
std::string FileTitle(std::string_view path);

// Every separator becomes the rules' own; Windows rules also lower-case every
// other character (tolower), so that comparing normalised paths ignores case.
void Normalize(std::string& path, PathPolicy policy = kHostPathPolicy);

// True when the path starts with a separator or has a drive ("x:").
bool IsAbsolute(std::string_view path);

// The drive parts are equal, byte for byte.
bool SameDrive(std::string_view a, std::string_view b);

// `path` relative to the folder `base`, normalised: "c:\A\B\f.bmp" against
// "c:\a\" gives "b\f.bmp", "c:\x\f.bmp" against "c:\a\b" gives "..\..\x\f.bmp".
// A path with nothing in common with an absolute base comes back normalised
// but absolute ("d:\x.bmp" against "c:\a\"). An empty path stays empty.
std::string RelativePath(std::string_view path,
                         std::string_view base,
                         PathPolicy policy = kHostPathPolicy);

// The inverse: `relative` resolved against the folder `base`, normalised.
// Leading "..\" steps climb out of base (never above its root); one leading
// ".\" is dropped. An empty relative gives base; an absolute one is returned
// as it is.
std::string CombinePath(std::string_view relative,
                        std::string_view base,
                        PathPolicy policy = kHostPathPolicy);

// The file or folder exists. This and StateFolder are the only functions
// here that ask the system.
bool FileExists(const std::string& path);

// `name` in Velomar's folder of the user's state ($XDG_STATE_HOME, else
// ~/.local/state, else the temporary folder), the folders made as needed.
// When they cannot be made, "velomar-" + name in the temporary folder: a crash
// report or rescued results must land somewhere.
std::string StateFolderPath(const std::string& name);
