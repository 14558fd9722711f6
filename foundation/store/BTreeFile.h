// The files of one tree: the page file at the tree's path, and the committed and pending state records
// beside it, each replaced durably. Used by its tree's thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace VantuBTree {

inline constexpr uint32_t kNoPage = 0xFFFFFFFF;

// Which pages form one version of the tree.
struct BTreeState {
    uint64_t sequence = 0;  // one more at every PreCommit
    uint32_t root = kNoPage;
    uint32_t height = 0;  // levels; 0 for an empty tree
    uint32_t count = 0;   // records
};

class BTreeFile {
public:
    enum StateKind { kCommitted, kPending };

    // Opens or creates the page file (read-only: it must exist). `flags` are the tree's shape bits, kept in
    // every state record and checked on reading.
    BTreeFile(const std::string& path, uint32_t pageSize, uint32_t flags, bool readOnly);
    ~BTreeFile();

    void ReadPage(uint32_t id, uint8_t* bytes);
    void WritePage(uint32_t id, const uint8_t* bytes);
    void Sync();
    uint32_t PageCount() const;
    void Truncate(uint32_t pages);

    bool ReadState(StateKind kind, BTreeState& state);
    void WriteState(StateKind kind, const BTreeState& state);
    void DeleteState(StateKind kind);

    uint64_t SizeOnDisk() const;
    bool IsReadOnly() const { return readOnly_; }
    void SetReadOnly(bool readOnly);
    const std::string& Path() const { return path_; }

    // "<stem>.<tag>.<ext>" beside `path`, or "<path>.<tag>" when the name has no extension.
    static std::string SideFileName(const std::string& path, const std::string& tag);
    [[noreturn]] void ThrowCorrupt(const std::string& what) const;

private:
    const std::string& StatePath(StateKind kind) const { return kind == kCommitted ? headPath_ : pendingPath_; }
    void OpenData();

    std::string path_;
    std::string headPath_;
    std::string pendingPath_;
    uint32_t pageSize_;
    uint32_t flags_;
    bool readOnly_;
    struct Data;
    std::unique_ptr<Data> data_;
};

}  // namespace VantuBTree
