// One open system file reached by explicit offsets only (pread/pwrite): no position is shared, so a
// writer's flush, resize or close never moves a reader. Calls return 0 or the system error number.
// Not synchronised; ReadAt may run on several threads at once while nothing resizes or closes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace VantuFile {

class FaultInjector;

class FileHandle {
public:
    enum Mode { kRead = 0, kReadWrite = 1, kCreate = 2 };

    FileHandle() = default;
    ~FileHandle() { Close(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    // Hints: 1 sequential scan, 2 random access, 4 delete on close; others change nothing here.
    // `osCached` false writes through to the device.
    int Open(const std::string& path, Mode mode, int accessHint = 0, bool osCached = true);
    bool IsOpen() const { return fd_ >= 0; }
    void Close();

    int ReadAt(uint64_t offset, void* data, size_t size, size_t& done);
    int WriteAt(uint64_t offset, const void* data, size_t size);
    // Sets the size exactly (ftruncate).
    int Resize(uint64_t size);
    // Reserves space up to `size` on the device so that a full disk is reported now, not at a later write.
    int Allocate(uint64_t size);
    int Sync();
    int PhysicalSize(uint64_t& size) const;

private:
    // The journal node of this file in the active injector, learned on first use.
    int64_t Node(FaultInjector* f);

    int fd_ = -1;
    std::string path_;
    bool deleteOnClose_ = false;
    const FaultInjector* journal_ = nullptr;
    int64_t node_ = -1;
};

}  // namespace VantuFile
