#include "file/FaultInjector.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace VantuFile {

std::atomic<FaultInjector*> FaultInjector::active_{nullptr};

namespace {

std::pair<std::string, std::string> Split(const std::string& path) {
    std::filesystem::path p = std::filesystem::absolute(path).lexically_normal();
    return {p.parent_path().string(), p.filename().string()};
}

// Raw POSIX: the journal's own reads and writes must never reach the hooks.
bool ReadWhole(const std::string& path, std::string& out) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    out.clear();
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) out.append(buffer, size_t(n));
    ::close(fd);
    return true;
}

void WriteWhole(const std::string& path, const std::string& data) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;
    for (size_t done = 0; done < data.size();) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n <= 0) break;
        done += size_t(n);
    }
    ::close(fd);
}

}  // namespace

const char* FileOpName(FileOp op) {
    switch (op) {
        case FileOp::Write: return "write";
        case FileOp::Truncate: return "truncate";
        case FileOp::Sync: return "fsync";
        case FileOp::Create: return "create";
        case FileOp::Rename: return "rename";
        case FileOp::Delete: return "delete";
        case FileOp::SyncDirectory: return "fsync-directory";
    }
    return "?";
}

FaultInjector::~FaultInjector() { Deactivate(); }

void FaultInjector::Activate() { active_.store(this, std::memory_order_seq_cst); }

void FaultInjector::Deactivate() {
    FaultInjector* self = this;
    active_.compare_exchange_strong(self, nullptr);
}

void FaultInjector::FailAt(std::optional<FileOp> kind, uint64_t n, int error) {
    std::lock_guard guard(lock_);
    failures_.push_back({kind, n, error});
}

void FaultInjector::OnOperation(uint64_t n, std::function<void()> action) {
    std::lock_guard guard(lock_);
    onOperation_ = Trigger{n, std::move(action)};
}

void FaultInjector::OnCrashPoint(std::string name, uint64_t occurrence, std::function<void()> action) {
    std::lock_guard guard(lock_);
    onPoint_[std::move(name)] = Trigger{occurrence, std::move(action)};
}

uint64_t FaultInjector::Operations() const {
    std::lock_guard guard(lock_);
    return operations_;
}

std::vector<std::string> FaultInjector::CrashPointsPassed() const {
    std::lock_guard guard(lock_);
    return pointsPassed_;
}

int FaultInjector::Before(FileOp op, const std::string& path) {
    std::function<void()> action;
    int error = 0;
    {
        std::lock_guard guard(lock_);
        uint64_t n = ++operations_;
        uint64_t nOfKind = ++byKind_[op];
        for (const Failure& f : failures_)
            if (f.kind ? (*f.kind == op && f.at == nOfKind) : f.at == n) error = f.error;
        if (onOperation_ && onOperation_->at == n) action = onOperation_->action;
    }
    // Outside the lock: the action may cut the power, which walks the journal.
    if (action) action();
    return error;
}

void FaultInjector::PassCrashPoint(const char* name) {
    std::function<void()> action;
    {
        std::lock_guard guard(lock_);
        pointsPassed_.push_back(name);
        uint64_t n = ++pointCounts_[name];
        auto it = onPoint_.find(name);
        if (it != onPoint_.end() && it->second.at == n) action = it->second.action;
    }
    if (action) action();
}

int64_t FaultInjector::TouchLocked(const std::string& path) {
    auto [dir, name] = Split(path);
    Directory& d = directories_[dir];
    auto it = d.live.find(name);
    if (it != d.live.end()) return it->second;
    std::string content;
    if (!std::filesystem::is_regular_file(path) || !ReadWhole(path, content)) return -1;
    // A file the journal meets for the first time was durable before the test began.
    nodes_.push_back({std::move(content), {}});
    int64_t node = int64_t(nodes_.size() - 1);
    d.live[name] = d.durable[name] = node;
    return node;
}

int64_t FaultInjector::Touch(const std::string& path) {
    std::lock_guard guard(lock_);
    return TouchLocked(path);
}

int64_t FaultInjector::Created(const std::string& path) {
    std::lock_guard guard(lock_);
    auto [dir, name] = Split(path);
    nodes_.push_back({});
    int64_t node = int64_t(nodes_.size() - 1);
    Directory& d = directories_[dir];
    d.live[name] = node;
    d.unsynced.push_back({NameChange::Link, name, {}, node});
    return node;
}

void FaultInjector::Wrote(int64_t node, uint64_t offset, const void* data, size_t size) {
    std::lock_guard guard(lock_);
    if (node >= 0) nodes_[node].unsynced.push_back({false, offset, std::string(static_cast<const char*>(data), size)});
}

void FaultInjector::Resized(int64_t node, uint64_t size) {
    std::lock_guard guard(lock_);
    if (node >= 0) nodes_[node].unsynced.push_back({true, size, {}});
}

void FaultInjector::Synced(int64_t node) {
    std::lock_guard guard(lock_);
    if (node < 0) return;
    Node& n = nodes_[node];
    for (const Change& c : n.unsynced) Apply(n.durable, c, c.data.size());
    n.unsynced.clear();
}

void FaultInjector::Renamed(const std::string& from, const std::string& to) {
    std::lock_guard guard(lock_);
    auto [fromDir, fromName] = Split(from);
    auto [toDir, toName] = Split(to);
    Directory& source = directories_[fromDir];
    auto it = source.live.find(fromName);
    if (it == source.live.end()) return;
    int64_t node = it->second;
    source.live.erase(it);
    Directory& target = directories_[toDir];
    target.live[toName] = node;
    if (fromDir == toDir) {
        target.unsynced.push_back({NameChange::Rename, fromName, toName, node});
    } else {
        source.unsynced.push_back({NameChange::Unlink, fromName, {}, node});
        target.unsynced.push_back({NameChange::Link, toName, {}, node});
    }
}

void FaultInjector::Deleted(const std::string& path) {
    std::lock_guard guard(lock_);
    auto [dir, name] = Split(path);
    Directory& d = directories_[dir];
    if (d.live.erase(name)) d.unsynced.push_back({NameChange::Unlink, name, {}, -1});
}

void FaultInjector::SyncedDirectory(const std::string& directory) {
    std::lock_guard guard(lock_);
    auto it = directories_.find(std::filesystem::absolute(directory).lexically_normal().string());
    if (it == directories_.end()) return;
    it->second.durable = it->second.live;
    it->second.unsynced.clear();
}

void FaultInjector::Apply(std::string& image, const Change& change, size_t keep) {
    if (change.resize) {
        image.resize(change.offset, '\0');
        return;
    }
    if (image.size() < change.offset + keep) image.resize(change.offset + keep, '\0');
    image.replace(change.offset, keep, change.data, 0, keep);
}

std::string FaultInjector::SurvivingImage(const Node& node, std::mt19937_64* rng) {
    std::string image = node.durable;
    if (!rng || node.unsynced.empty()) return image;
    size_t kept = (*rng)() % (node.unsynced.size() + 1);
    for (size_t i = 0; i < kept; ++i) Apply(image, node.unsynced[i], node.unsynced[i].data.size());
    if (kept == node.unsynced.size() || node.unsynced[kept].resize) return image;
    // The next write was under way: it reached the disk up to some sector boundary inside it, maybe none.
    const Change& torn = node.unsynced[kept];
    uint64_t first = (torn.offset / 512 + 1) * 512, end = torn.offset + torn.data.size();
    if (first >= end) return image;
    uint64_t sectors = (end - 1 - first) / 512 + 1;
    uint64_t cut = first + ((*rng)() % (sectors + 1)) * 512;
    if (cut > end) cut = torn.offset;  // the draw past the last boundary keeps nothing of it
    if (cut > torn.offset) Apply(image, torn, cut - torn.offset);
    return image;
}

std::map<std::string, int64_t> FaultInjector::SurvivingNames(const Directory& directory, std::mt19937_64* rng) {
    std::map<std::string, int64_t> names = directory.durable;
    size_t kept = rng ? (*rng)() % (directory.unsynced.size() + 1) : 0;
    for (size_t i = 0; i < kept; ++i) {
        const NameChange& c = directory.unsynced[i];
        if (c.kind == NameChange::Link) names[c.name] = c.node;
        if (c.kind == NameChange::Unlink) names.erase(c.name);
        if (c.kind == NameChange::Rename && names.count(c.name)) {
            names[c.to] = names[c.name];
            names.erase(c.name);
        }
    }
    return names;
}

void FaultInjector::CutPower(std::optional<uint64_t> tornSeed) {
    Deactivate();
    std::lock_guard guard(lock_);
    std::mt19937_64 random(tornSeed.value_or(0));
    std::mt19937_64* rng = tornSeed ? &random : nullptr;
    std::vector<std::string> images;
    for (const Node& node : nodes_) images.push_back(SurvivingImage(node, rng));
    for (const auto& [dir, d] : directories_) {
        std::set<std::string> touched;
        for (const auto& [name, node] : d.live) touched.insert(name);
        for (const auto& [name, node] : d.durable) touched.insert(name);
        for (const NameChange& c : d.unsynced) touched.insert({c.name, c.to});
        for (const std::string& name : touched)
            if (!name.empty()) ::unlink((dir + "/" + name).c_str());
        for (const auto& [name, node] : SurvivingNames(d, rng)) WriteWhole(dir + "/" + name, images[node]);
    }
}

}  // namespace VantuFile
