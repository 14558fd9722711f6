#include "store/BTreeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>

#include "core/Exception.h"

namespace VantuBTree {

namespace {

constexpr uint32_t kStateMagic = 0x48545256;  // "VRTH"
constexpr uint32_t kStateVersion = 1;
constexpr uint32_t kStateSize = 40;

void Put32(uint8_t* b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[i] = uint8_t(v >> (8 * i));
}
uint32_t Get32(const uint8_t* b) { return b[0] | (b[1] << 8) | (b[2] << 16) | (uint32_t(b[3]) << 24); }

[[noreturn]] void ThrowIo(const std::string& what, const std::string& path) {
    throw Vantu::Exception::FromText(Vantu::FromUtf8(what + " " + path + ": " + std::strerror(errno)));
}

}  // namespace

struct BTreeFile::Data {
    int fd = -1;
    uint64_t size = 0;
};

BTreeFile::BTreeFile(const std::string& path, uint32_t pageSize, uint32_t flags, bool readOnly)
    : path_(path),
      headPath_(SideFileName(path, "head")),
      pendingPath_(SideFileName(path, "pending")),
      pageSize_(pageSize),
      flags_(flags),
      readOnly_(readOnly),
      data_(std::make_unique<Data>()) {
    OpenData();
}

BTreeFile::~BTreeFile() {
    if (data_->fd >= 0) ::close(data_->fd);
}

std::string BTreeFile::SideFileName(const std::string& path, const std::string& tag) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot == slash + 1)
        return path + "." + tag;
    return path.substr(0, dot) + "." + tag + path.substr(dot);
}

void BTreeFile::ThrowCorrupt(const std::string& what) const {
    throw Vantu::Exception::FromText(Vantu::FromUtf8("The B-tree file " + path_ + " is damaged: " + what));
}

void BTreeFile::OpenData() {
    const int fd = ::open(path_.c_str(), readOnly_ ? O_RDONLY : O_RDWR | O_CREAT, 0644);
    if (fd < 0) ThrowIo("open", path_);
    if (data_->fd >= 0) ::close(data_->fd);
    data_->fd = fd;
    struct stat st {};
    ::fstat(fd, &st);
    data_->size = st.st_size;
}

void BTreeFile::ReadPage(uint32_t id, uint8_t* bytes) {
    const uint64_t at = uint64_t(id) * pageSize_;
    if (at + pageSize_ > data_->size) ThrowCorrupt("the file ends inside page " + std::to_string(id));
    if (::pread(data_->fd, bytes, pageSize_, at) != ssize_t(pageSize_)) ThrowIo("read", path_);
}

void BTreeFile::WritePage(uint32_t id, const uint8_t* bytes) {
    const uint64_t at = uint64_t(id) * pageSize_;
    if (::pwrite(data_->fd, bytes, pageSize_, at) != ssize_t(pageSize_)) ThrowIo("write", path_);
    data_->size = std::max(data_->size, at + pageSize_);
}

void BTreeFile::Sync() {
    if (::fsync(data_->fd) != 0) ThrowIo("flush", path_);
}

uint32_t BTreeFile::PageCount() const { return static_cast<uint32_t>(data_->size / pageSize_); }

void BTreeFile::Truncate(uint32_t pages) {
    if (::ftruncate(data_->fd, uint64_t(pages) * pageSize_) != 0) ThrowIo("resize", path_);
    data_->size = uint64_t(pages) * pageSize_;
}

bool BTreeFile::ReadState(StateKind kind, BTreeState& state) {
    const std::string& p = StatePath(kind);
    const int fd = ::open(p.c_str(), O_RDONLY);
    if (fd < 0) {
        if (errno == ENOENT) return false;
        ThrowIo("open", p);
    }
    uint8_t b[kStateSize + 1];
    const ssize_t n = ::read(fd, b, sizeof b);
    ::close(fd);
    if (n != ssize_t(kStateSize) || Get32(b) != kStateMagic || Get32(b + 4) != kStateVersion ||
        Get32(b + 36) != static_cast<uint32_t>(crc32(0, b, 36)))
        ThrowCorrupt("state record " + p);
    if (Get32(b + 8) != pageSize_ || Get32(b + 12) != flags_) ThrowCorrupt("page size or shape of " + p);
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
    const std::string& p = StatePath(kind);
    const std::string tmp = p + ".tmp";
    const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) ThrowIo("open", tmp);
    const bool ok = ::write(fd, b, sizeof b) == ssize_t(sizeof b) && ::fsync(fd) == 0;
    ::close(fd);
    if (!ok || ::rename(tmp.c_str(), p.c_str()) != 0) ThrowIo("write", p);
}

void BTreeFile::DeleteState(StateKind kind) {
    const std::string& p = StatePath(kind);
    if (::unlink(p.c_str()) != 0 && errno != ENOENT) ThrowIo("delete", p);
}

uint64_t BTreeFile::SizeOnDisk() const {
    struct stat st {};
    uint64_t total = data_->size;
    if (::stat(headPath_.c_str(), &st) == 0) total += st.st_size;
    if (::stat(pendingPath_.c_str(), &st) == 0) total += st.st_size;
    return total;
}

void BTreeFile::SetReadOnly(bool readOnly) {
    readOnly_ = readOnly;
    if (!readOnly) OpenData();
}

}  // namespace VantuBTree
