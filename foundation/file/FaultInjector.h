// Test-only faults in the file layer: failing or interrupting the Nth durable operation, named crash points,
// and a journal of what isn't durable yet, so that a power cut can be simulated on the real files.
// Off unless a test activates one injector; when off the file layer pays one relaxed atomic load.
// An active injector may be called from any thread (it serialises itself).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace VantuFile {

// The operations that change what survives a crash. Each counts as one durable operation.
enum class FileOp { Write, Truncate, Sync, Create, Rename, Delete, SyncDirectory };
const char* FileOpName(FileOp op);

class FaultInjector {
public:
    FaultInjector() = default;
    ~FaultInjector();
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;

    // The active injector, or null: the only cost of the hooks when no test uses them.
    static FaultInjector* Active() { return active_.load(std::memory_order_relaxed); }

    // Becomes the active injector (one at a time), and stops being it. Files already known stay journaled.
    void Activate();
    void Deactivate();

    // The `n`th operation (1-based) of kind `kind`, or of any kind when `kind` is empty, fails with `error`.
    void FailAt(std::optional<FileOp> kind, uint64_t n, int error);
    // `action` runs just before the `n`th durable operation (1-based) is carried out.
    void OnOperation(uint64_t n, std::function<void()> action);
    // `action` runs at the `occurrence`th (1-based) pass through CrashPoint(`name`).
    void OnCrashPoint(std::string name, uint64_t occurrence, std::function<void()> action);

    // Durable operations so far, and the crash points passed, in order.
    uint64_t Operations() const;
    std::vector<std::string> CrashPointsPassed() const;

    // Puts every journaled file and directory back to what a power failure now would leave on disk.
    // Without a seed nothing unsynced survives; with one, each file keeps a seeded random prefix of its
    // unsynced changes (the last one torn at a 512-byte boundary) and each directory a prefix of its
    // unsynced creates, renames and deletes. Deactivates the injector first.
    void CutPower(std::optional<uint64_t> tornSeed = std::nullopt);

    // Switches that break the durability protocol on purpose, to show that the crash tests catch it.
    void SkipSyncBeforeRename(bool skip) { skipSyncBeforeRename_ = skip; }
    void SkipDirectorySync(bool skip) { skipDirectorySync_ = skip; }
    bool SkipsSyncBeforeRename() const { return skipSyncBeforeRename_; }
    bool SkipsDirectorySync() const { return skipDirectorySync_; }

    // Called by the file layer. Before returns 0 to let the operation run, or the error it must fail with.
    int Before(FileOp op, const std::string& path);
    void PassCrashPoint(const char* name);
    // Learns a path before an operation on it, reading what it holds as already durable.
    int64_t Touch(const std::string& path);
    int64_t Created(const std::string& path);
    void Wrote(int64_t node, uint64_t offset, const void* data, size_t size);
    void Resized(int64_t node, uint64_t size);
    void Synced(int64_t node);
    void Renamed(const std::string& from, const std::string& to);
    void Deleted(const std::string& path);
    void SyncedDirectory(const std::string& directory);

private:
    struct Change {
        bool resize;
        uint64_t offset;  // the new size of a resize
        std::string data;
    };
    struct Node {
        std::string durable;
        std::vector<Change> unsynced;
    };
    struct NameChange {
        enum Kind { Link, Unlink, Rename } kind;
        std::string name, to;
        int64_t node;
    };
    struct Directory {
        std::map<std::string, int64_t> live, durable;
        std::vector<NameChange> unsynced;
    };
    struct Trigger {
        uint64_t at;
        std::function<void()> action;
    };

    static void Apply(std::string& image, const Change& change, size_t keep);
    static std::string SurvivingImage(const Node& node, std::mt19937_64* rng);
    static std::map<std::string, int64_t> SurvivingNames(const Directory& directory, std::mt19937_64* rng);
    int64_t TouchLocked(const std::string& path);

    static std::atomic<FaultInjector*> active_;

    mutable std::mutex lock_;
    uint64_t operations_ = 0;
    std::map<FileOp, uint64_t> byKind_;
    struct Failure {
        std::optional<FileOp> kind;
        uint64_t at;
        int error;
    };
    std::vector<Failure> failures_;
    std::optional<Trigger> onOperation_;
    std::map<std::string, Trigger> onPoint_;
    std::map<std::string, uint64_t> pointCounts_;
    std::vector<std::string> pointsPassed_;
    std::vector<Node> nodes_;
    std::map<std::string, Directory> directories_;
    bool skipSyncBeforeRename_ = false;
    bool skipDirectorySync_ = false;
};

// A named step of a protocol at which a test may stop the process or cut the power. Free when no test listens.
inline void CrashPoint(const char* name) {
    if (FaultInjector* f = FaultInjector::Active()) f->PassCrashPoint(name);
}

}  // namespace VantuFile
