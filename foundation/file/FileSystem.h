// The durability rule in one place: a file is synced before it is renamed into place, and its directory
// is synced after every rename, create or delete that must survive a crash. No store open-codes these.
// Any thread; two threads must not rename or delete the same path at once.
#pragma once

#include <string>
#include <vector>

namespace VantuFile {

// True when `path` names a regular file.
bool FileExists(const std::string& path);

// Makes the directory entries of the folder holding `path` durable. Failure raises action 6.
void SyncDirectoryOf(const std::string& path);

// Syncs `from`, renames it to `to` (replacing `to` atomically), then syncs the folder(s).
// Failure raises action 4 (rename) or 6 (sync).
void RenameDurably(const std::string& from, const std::string& to);

// Copies `from` to `to` (replacing it), then syncs the copy and its folder. Failures raise the file errors.
void CopyFileDurably(const std::string& from, const std::string& to);

// Removes `path` if it is a file, then syncs its folder. Failure raises action 3.
void DeleteDurably(const std::string& path);

// The paths of the regular files of `directory` whose names match `pattern` (fnmatch, case-sensitive), sorted.
// A missing directory has none.
std::vector<std::string> ListFiles(const std::string& directory, const std::string& pattern);

}  // namespace VantuFile
