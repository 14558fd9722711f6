// What every file object holds: its path, and the raising of its failures as FileExceptions naming it.
// Immutable after construction: any thread.
#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

#include "file/FileException.h"

namespace VantuFile {

template <class C>
using PathT = std::basic_string<C>;

class CFileBase {
public:
    // Open modes: 0 read only, the file must exist; 1 read and write, opened or created;
    // 2 read and write, always created empty.
    enum OpenMode { kModeRead = 0, kModeReadWrite = 1, kModeCreate = 2 };
    // File origins, in their numeric order (stream origins differ: begin, end, current).
    enum Origin { kBegin = 0, kCurrent = 1, kEnd = 2 };
    enum Direction { kForward = 0, kBackward = 1 };

    explicit CFileBase(PathT<char> path) : path_(std::move(path)) {}
    virtual ~CFileBase() = default;

    const PathT<char>& Path() const { return path_; }

    // Raises the FileException of `action` with the system error `error` and this path.
    [[noreturn]] void Throw(Action action, int error = errno) const { ThrowFileError(action, path_, error); }
    [[noreturn]] void ThrowSeekOutOfRange(uint64_t offset) const;

private:
    PathT<char> path_;
};

}  // namespace VantuFile
