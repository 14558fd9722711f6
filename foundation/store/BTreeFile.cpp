#include "store/BTreeFile.h"

#include <zlib.h>

#include "file/CFileT.h"
#include "file/FileException.h"
#include "file/FileSystem.h"
#include "file/StateFile.h"

namespace VantuBTree {

namespace {

constexpr uint32_t kStateMagic = 0x48545256;  // "VRTH"
constexpr uint32_t kStateVersion = 1;
constexpr uint32_t kStateSize = 40;

void Put32(uint8_t* b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[i] = uint8_t(v >> (8 * i));
}
uint32_t Get32(const uint8_t* b) { return b[0] | (b[1] << 8) | (b[2] << 16) | (uint32_t(b[3]) << 24); }

}  // namespace

struct BTreeFile::Data {
    explicit Data(const std::string& path) : file(path, 2) {}  // access hint 2: random access
    VantuFile::CFileT<uint64_t> file;
};

BTreeFile::BTreeFile(const std::string& path, uint32_t pageSize, uint32_t flags, bool readOnly)
    : path_(path),
      headPath_(SideFileName(path, "head")),
      pendingPath_(SideFileName(path, "pending")),
      pageSize_(pageSize),
      flags_(flags),
      readOnly_(readOnly),
      data_(std::make_unique<Data>(path)) {
    OpenData();
}

BTreeFile::~BTreeFile() = default;

std::string BTreeFile::SideFileName(const std::string& path, const std::string& tag) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot == slash + 1)
        return path + "." + tag;
    return path.substr(0, dot) + "." + tag + path.substr(dot);
}

void BTreeFile::ThrowCorrupt(const std::string& what) const { VantuFile::ThrowCorruptFile(path_, what); }

void BTreeFile::OpenData() {
    const bool created = !readOnly_ && !VantuFile::FileExists(path_);
    data_->file.Open(readOnly_ ? VantuFile::CFileBase::kModeRead : VantuFile::CFileBase::kModeReadWrite);
    if (created) VantuFile::SyncDirectoryOf(path_);
}

void BTreeFile::ReadPage(uint32_t id, uint8_t* bytes) {
    const uint64_t at = uint64_t(id) * pageSize_;
    if (at + pageSize_ > data_->file.Size()) ThrowCorrupt("the file ends inside page " + std::to_string(id));
    data_->file.ReadAt(at, bytes, pageSize_, true);
}

void BTreeFile::WritePage(uint32_t id, const uint8_t* bytes) {
    const uint64_t at = uint64_t(id) * pageSize_;
    data_->file.Seek(at);
    data_->file.Write(bytes, 1, pageSize_);
}

void BTreeFile::Sync() {
    data_->file.Flush();
}

uint32_t BTreeFile::PageCount() const { return static_cast<uint32_t>(data_->file.Size() / pageSize_); }

void BTreeFile::Truncate(uint32_t pages) {
    data_->file.SetSize(uint64_t(pages) * pageSize_, false);
}

// A replacement that a crash cut short is finished first; a read-only tree takes the newer file as it is.
bool BTreeFile::ReadState(StateKind kind, BTreeState& state) {
    const std::string& p = StatePath(kind);
    std::string bytes;
    if (!readOnly_) VantuFile::StateFile::Recover(p);
    const bool found = (readOnly_ && VantuFile::StateFile::Read(p + ".new", bytes)) || VantuFile::StateFile::Read(p, bytes);
    if (!found) return false;
    const auto* b = reinterpret_cast<const uint8_t*>(bytes.data());
    if (bytes.size() != kStateSize || Get32(b) != kStateMagic || Get32(b + 4) != kStateVersion ||
        Get32(b + 36) != static_cast<uint32_t>(crc32(0, b, 36)))
        VantuFile::ThrowCorruptFile(p, "not a B-tree state record");
    if (Get32(b + 8) != pageSize_ || Get32(b + 12) != flags_)
        VantuFile::ThrowCorruptFile(p, "the tree was made with another page size or shape");
    state.sequence = Get32(b + 16) | (uint64_t(Get32(b + 20)) << 32);
    state.root = Get32(b + 24);
    state.height = Get32(b + 28);
    state.count = Get32(b + 32);
    return true;
}

void BTreeFile::WriteState(StateKind kind, const BTreeState& state) {
    uint8_t b[kStateSize];
    Put32(b, kStateMagic);
    Put32(b + 4, kStateVersion);
    Put32(b + 8, pageSize_);
    Put32(b + 12, flags_);
    Put32(b + 16, uint32_t(state.sequence));
    Put32(b + 20, uint32_t(state.sequence >> 32));
    Put32(b + 24, state.root);
    Put32(b + 28, state.height);
    Put32(b + 32, state.count);
    Put32(b + 36, static_cast<uint32_t>(crc32(0, b, 36)));
    VantuFile::StateFile::Replace(StatePath(kind), std::string(reinterpret_cast<const char*>(b), sizeof b));
}

void BTreeFile::DeleteState(StateKind kind) { VantuFile::DeleteDurably(StatePath(kind)); }

uint64_t BTreeFile::SizeOnDisk() const {
    uint64_t total = data_->file.Size();
    for (const std::string* p : {&headPath_, &pendingPath_})
        if (VantuFile::FileExists(*p)) total += kStateSize;
    return total;
}

void BTreeFile::SetReadOnly(bool readOnly) {
    readOnly_ = readOnly;
    if (!readOnly) OpenData();
}

}  // namespace VantuBTree
