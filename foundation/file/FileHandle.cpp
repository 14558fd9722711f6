#include "file/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "file/FaultInjector.h"

namespace VantuFile {

int FileHandle::Open(const std::string& path, Mode mode, int accessHint, bool osCached) {
    Close();
    int flags = O_CLOEXEC | (mode == kRead ? O_RDONLY : O_RDWR | O_CREAT) | (mode == kCreate ? O_TRUNC : 0);
    if (!osCached) flags |= O_DSYNC;
    FaultInjector* f = FaultInjector::Active();
    bool existed = false;
    if (f && mode != kRead) {
        existed = f->Touch(path) >= 0;
        // Opening an existing file for writing changes nothing on disk; creating or emptying one does.
        if (!existed || mode == kCreate)
            if (int error = f->Before(existed ? FileOp::Truncate : FileOp::Create, path)) return error;
    }
    int fd = ::open(path.c_str(), flags, 0644);
    if (fd < 0) return errno;
    fd_ = fd;
    path_ = path;
    deleteOnClose_ = accessHint == 4;
    if (accessHint == 1) ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    if (accessHint == 2) ::posix_fadvise(fd_, 0, 0, POSIX_FADV_RANDOM);
    if (f) {
        journal_ = f;
        node_ = existed || mode == kRead ? f->Touch(path) : f->Created(path);
        if (existed && mode == kCreate) f->Resized(node_, 0);
    }
    return 0;
}

void FileHandle::Close() {
    if (fd_ < 0) return;
    ::close(fd_);
    fd_ = -1;
    if (deleteOnClose_) ::unlink(path_.c_str());
    journal_ = nullptr;
    node_ = -1;
}

int64_t FileHandle::Node(FaultInjector* f) {
    if (journal_ != f) {
        journal_ = f;
        node_ = f->Touch(path_);
    }
    return node_;
}

int FileHandle::ReadAt(uint64_t offset, void* data, size_t size, size_t& done) {
    done = 0;
    while (done < size) {
        ssize_t n = ::pread(fd_, static_cast<char*>(data) + done, size - done, off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) break;
        done += size_t(n);
    }
    return 0;
}

int FileHandle::WriteAt(uint64_t offset, const void* data, size_t size) {
    FaultInjector* f = FaultInjector::Active();
    if (f)
        if (int error = f->Before(FileOp::Write, path_)) return error;
    for (size_t done = 0; done < size;) {
        ssize_t n = ::pwrite(fd_, static_cast<const char*>(data) + done, size - done, off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return EIO;
        done += size_t(n);
    }
    if (f) f->Wrote(Node(f), offset, data, size);
    return 0;
}

int FileHandle::Resize(uint64_t size) {
    FaultInjector* f = FaultInjector::Active();
    if (f)
        if (int error = f->Before(FileOp::Truncate, path_)) return error;
    if (::ftruncate(fd_, off_t(size)) != 0) return errno;
    if (f) f->Resized(Node(f), size);
    return 0;
}

int FileHandle::Allocate(uint64_t size) {
    uint64_t current = 0;
    if (int error = PhysicalSize(current)) return error;
    if (size <= current) return 0;
    FaultInjector* f = FaultInjector::Active();
    if (f)
        if (int error = f->Before(FileOp::Truncate, path_)) return error;
    int error = ::posix_fallocate(fd_, off_t(current), off_t(size - current));
    // A file system that can't reserve still extends: the disk fills later, as it would without the reservation.
    if (error == EOPNOTSUPP || error == EINVAL) error = ::ftruncate(fd_, off_t(size)) == 0 ? 0 : errno;
    if (error) return error;
    if (f) f->Resized(Node(f), size);
    return 0;
}

int FileHandle::Sync() {
    FaultInjector* f = FaultInjector::Active();
    if (f)
        if (int error = f->Before(FileOp::Sync, path_)) return error;
    if (::fsync(fd_) != 0) return errno;
    if (f) f->Synced(Node(f));
    return 0;
}

int FileHandle::PhysicalSize(uint64_t& size) const {
    struct stat st;
    if (::fstat(fd_, &st) != 0) return errno;
    size = uint64_t(st.st_size);
    return 0;
}

}  // namespace VantuFile
