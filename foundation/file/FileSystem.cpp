#include "file/FileSystem.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "file/CFileT.h"
#include "file/FaultInjector.h"
#include "file/FileException.h"
#include "file/FileHandle.h"

namespace VantuFile {

namespace {

std::string FolderOf(const std::string& path) {
    std::filesystem::path folder = std::filesystem::absolute(path).lexically_normal().parent_path();
    return folder.string();
}

void SyncFolder(const std::string& folder, const std::string& forPath) {
    FaultInjector* f = FaultInjector::Active();
    if (f && f->SkipsDirectorySync()) return;
    int error = f ? f->Before(FileOp::SyncDirectory, folder) : 0;
    if (!error) {
        int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) {
            error = errno;
        } else {
            if (::fsync(fd) != 0) error = errno;
            ::close(fd);
        }
    }
    if (error) ThrowFileError(kActionWrite, forPath, error);
    if (f) f->SyncedDirectory(folder);
}

}  // namespace

bool FileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

void SyncDirectoryOf(const std::string& path) { SyncFolder(FolderOf(path), path); }

void RenameDurably(const std::string& from, const std::string& to) {
    FaultInjector* f = FaultInjector::Active();
    if (!(f && f->SkipsSyncBeforeRename())) {
        FileHandle source;
        int error = source.Open(from, FileHandle::kRead);
        if (!error) error = source.Sync();
        if (error) ThrowFileError(kActionWrite, from, error);
    }
    if (f) {
        f->Touch(from);
        f->Touch(to);
        if (int error = f->Before(FileOp::Rename, to)) ThrowFileError(kActionRename, from, error);
    }
    if (::rename(from.c_str(), to.c_str()) != 0) ThrowFileError(kActionRename, from);
    if (f) f->Renamed(from, to);
    std::string fromFolder = FolderOf(from), toFolder = FolderOf(to);
    SyncFolder(toFolder, to);
    if (fromFolder != toFolder) SyncFolder(fromFolder, from);
}

void DeleteDurably(const std::string& path) {
    if (!FileExists(path)) return;
    FaultInjector* f = FaultInjector::Active();
    if (f) {
        f->Touch(path);
        if (int error = f->Before(FileOp::Delete, path)) ThrowFileError(kActionDelete, path, error);
    }
    if (::unlink(path.c_str()) != 0) ThrowFileError(kActionDelete, path);
    if (f) f->Deleted(path);
    SyncDirectoryOf(path);
}

std::vector<std::string> ListFiles(const std::string& directory, const std::string& pattern) {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename().string();
        if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0 && entry.is_regular_file(error)) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

void CopyFileDurably(const std::string& from, const std::string& to) {
    CFileT<uint64_t> source(from), target(to);
    source.Open(CFileBase::kModeRead);
    target.Open(CFileBase::kModeCreate);
    std::vector<uint8_t> round(32768);
    for (uint64_t offset = 0; offset < source.Size();) {
        const size_t take = size_t(std::min<uint64_t>(source.Size() - offset, round.size()));
        source.ReadAt(offset, round.data(), take, true);
        target.Write(round.data(), 1, take);
        offset += take;
    }
    target.Flush();
    target.Close();
    SyncDirectoryOf(to);
}

}  // namespace VantuFile
