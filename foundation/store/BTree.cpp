#include "store/BTree.h"

#include <algorithm>

#include "store/BTreePage.h"

namespace VantuBTree {

namespace {

constexpr uint32_t kFlagDuplicates = 1, kFlagFixedKey = 2, kFlagHasValue = 4, kFlagFixedValue = 8;
// A page under a quarter full looks for a neighbour to merge with, if both fit in three quarters.
constexpr uint32_t kMergeBelowQuarters = 1, kMergeFitQuarters = 3;

uint32_t ShapeFlags(bool duplicates, bool fixedKey, bool hasValue, bool fixedValue) {
    return (duplicates ? kFlagDuplicates : 0) | (fixedKey ? kFlagFixedKey : 0) | (hasValue ? kFlagHasValue : 0) |
           (fixedValue ? kFlagFixedValue : 0);
}

uint32_t CheckedPageSize(uint32_t pageSize) {
    if (pageSize < 1024 || pageSize > 0x10000 || (pageSize & (pageSize - 1)) != 0)
        throw Vantu::Exception::FromText(u"B-tree page size must be a power of two from 1024 to 65536");
    return pageSize;
}

// Splits at the middle of the bytes; an append at the end leaves the old page full, which packs keys that
// arrive in order.
uint32_t SplitIndex(const BTreePage& page, uint32_t insertAt, uint32_t cellSize) {
    const uint32_t n = page.Count();
    if (insertAt == n) return n;
    uint32_t total = cellSize;
    for (uint32_t i = 0; i < n; ++i) total += BTreePage::CellSize(page.KeySize(i), page.ValueSize(i));
    uint32_t sum = 0, m = 0;
    for (uint32_t j = 0; j <= n && sum < total / 2; ++j, ++m) {
        const uint32_t i = j < insertAt ? j : j - 1;
        sum += j == insertAt ? cellSize : BTreePage::CellSize(page.KeySize(i), page.ValueSize(i));
    }
    return std::clamp<uint32_t>(m, 1, n);
}

}  // namespace

BTree::BTree(const std::string& path, bool duplicates, bool fixedKey, bool hasValue, bool fixedValue,
             uint32_t pageSize, uint32_t cacheSize, bool readOnly, bool)
    : file_(path, CheckedPageSize(pageSize), ShapeFlags(duplicates, fixedKey, hasValue, fixedValue), readOnly),
      cache_(file_, pageSize, std::max<uint32_t>(8, cacheSize / pageSize)),
      pageSize_(pageSize),
      recordLimit_((pageSize - BTreePage::kHeaderSize) / 4 - BTreePage::kCellHeader - BTreePage::kSlotSize -
                   BTreePage::kBranchValueSize),
      duplicates_(duplicates),
      readOnly_(readOnly) {
    end_.tree_ = this;
    Open();
}

BTree::~BTree() = default;

void BTree::ThrowRecordTooLargeException(const std::string& path) {
    throw RecordTooLargeException(
        Vantu::MessageInfo::FromText(u"The record is too large for the B-tree " + Vantu::FromUtf8(path)));
}

// ---- opening -------------------------------------------------------------------------------------

void BTree::Open() {
    file_.ReadState(BTreeFile::kCommitted, committed_);
    if (file_.ReadState(BTreeFile::kPending, pending_)) {
        // A pending record no newer than the committed one is a Commit that stopped before its last step.
        if (pending_.sequence > committed_.sequence) hasPending_ = true;
        else if (!readOnly_) file_.DeleteState(BTreeFile::kPending);
    }
    pageCount_ = file_.PageCount();
    owners_.assign(pageCount_, 0);
    MarkPages(committed_.root, committed_.height, kCommitted);
    if (hasPending_) MarkPages(pending_.root, pending_.height, kPending);
    work_ = hasPending_ ? pending_ : committed_;
    const uint8_t current = hasPending_ ? kPending : kCommitted;
    for (uint32_t id = 0; id < pageCount_; ++id) {
        if (owners_[id] & current) owners_[id] |= kWorking;
        if (owners_[id] == 0) freeIds_.insert(id);
    }
}

// Flags every page reachable from `root`; a page already flagged heads a subtree already done.
void BTree::MarkPages(uint32_t root, uint32_t height, uint8_t owner) {
    if (root == kNoPage) return;
    if (height == 0 || height > BTreePath::kMaxDepth) file_.ThrowCorrupt("tree height");
    std::vector<std::pair<uint32_t, uint32_t>> stack{{root, height - 1}};
    while (!stack.empty()) {
        const auto [id, level] = stack.back();
        stack.pop_back();
        if (id >= pageCount_) file_.ThrowCorrupt("page beyond the end of the file");
        if (owners_[id] & owner) continue;
        owners_[id] |= owner;
        if (level == 0) continue;
        const BTreePage page = Load(id, level);
        for (uint32_t i = 0; i < page.Count(); ++i) stack.push_back({page.Child(i), level - 1});
    }
    cache_.Trim();
}

// ---- reading ------------------------------------------------------------------------------------

BTreePage BTree::Load(uint32_t id, uint32_t level) const {
    if (id >= pageCount_) file_.ThrowCorrupt("page beyond the end of the file");
    BTreePage page(cache_.Get(id), pageSize_);
    // Only a root leaf may be empty, and only until its first record is in.
    if (page.IsLeaf() != (level == 0) || (level && page.Count() == 0)) file_.ThrowCorrupt("page of the wrong kind");
    return page;
}

BTreePage BTree::LoadAt(const BTreePath& path, uint32_t index) const {
    return Load(path.page[index], path.depth - 1 - index);
}

Record BTree::RecordAt(const BTreePath& path) const {
    const BTreePage leaf = LoadAt(path, path.depth - 1);
    const uint32_t s = path.slot[path.depth - 1];
    return {leaf.Key(s), leaf.KeySize(s), leaf.Value(s), leaf.ValueSize(s)};
}

// The first place whose key is not before `key` (or, with `upper`, after it). The leaf slot may equal the
// leaf's count: the place lies between this leaf and the next, which is where an insert goes.
BTreePath BTree::Search(const Record& key, bool upper) const {
    BTreePath path;
    uint32_t id = work_.root;
    for (uint32_t level = work_.height; level-- > 0;) {
        const BTreePage page = Load(id, level);
        // A cell belongs to the right of the place when its key is after `key` (upper) or not before it.
        auto right = [&](uint32_t i) {
            const Record cell{page.Key(i), page.KeySize(i), nullptr, 0};
            return upper ? Compare(key, cell) : !Compare(cell, key);
        };
        uint32_t lo = level == 0 ? 0 : 1, hi = page.Count();
        while (lo < hi) {
            const uint32_t mid = (lo + hi) / 2;
            if (right(mid)) hi = mid;
            else lo = mid + 1;
        }
        const uint32_t slot = level == 0 ? lo : lo - 1;
        path.page[path.depth] = id;
        path.slot[path.depth++] = slot;
        if (level) id = page.Child(slot);
    }
    return path;
}

// Moves a place that lies past its leaf's last record to the next record; false at the end.
bool BTree::Normalize(BTreePath& path) const {
    if (path.depth == 0) return false;
    const uint32_t leafIndex = path.depth - 1;
    if (path.slot[leafIndex] < LoadAt(path, leafIndex).Count()) return true;
    --path.slot[leafIndex];
    return Advance(path);
}

bool BTree::Advance(BTreePath& path) const {
    if (path.depth == 0) return false;
    int32_t index = static_cast<int32_t>(path.depth) - 1;
    while (index >= 0 && ++path.slot[index] >= LoadAt(path, index).Count()) --index;
    if (index < 0) {
        path.depth = 0;
        return false;
    }
    for (uint32_t i = index + 1; i < path.depth; ++i) {
        path.page[i] = LoadAt(path, i - 1).Child(path.slot[i - 1]);
        path.slot[i] = 0;
    }
    return true;
}

BTreePath BTree::SeekRank(uint32_t rank) const {
    BTreePath path;
    if (rank >= work_.count) return path;
    uint32_t id = work_.root;
    for (uint32_t level = work_.height; level-- > 0;) {
        const BTreePage page = Load(id, level);
        uint32_t slot = 0;
        if (level == 0) {
            if (rank >= page.Count()) file_.ThrowCorrupt("record counts");
            slot = rank;
        } else {
            for (; slot + 1 < page.Count() && rank >= page.ChildCount(slot); ++slot) rank -= page.ChildCount(slot);
            if (rank >= page.ChildCount(slot)) file_.ThrowCorrupt("record counts");
        }
        path.page[path.depth] = id;
        path.slot[path.depth++] = slot;
        if (level) id = page.Child(slot);
    }
    return path;
}

uint32_t BTree::RankOf(const BTreePath& path) const {
    if (path.depth == 0) return work_.count;
    uint32_t rank = path.slot[path.depth - 1];
    for (uint32_t i = 0; i + 1 < path.depth; ++i) {
        const BTreePage page = LoadAt(path, i);
        for (uint32_t s = 0; s < path.slot[i]; ++s) rank += page.ChildCount(s);
    }
    return rank;
}

BTreeIterator BTree::MakeIterator(const BTreePath& path) const {
    BTreeIterator it;
    it.tree_ = const_cast<BTree*>(this);
    it.path_ = path;
    it.version_ = version_;
    if (path.depth) it.record_.Assign(RecordAt(path));
    return it;
}

// Brings an iterator from an older version of the tree back to its record, found by key (and by value
// among equal keys).
void BTree::Refresh(const BTreeIterator& it) const {
    if (it.version_ == version_) return;
    it.version_ = version_;
    if (it.path_.depth == 0) return;
    const Record held = it.record_.Get();
    BTreePath path = Search(held, false);
    bool found = Normalize(path);
    while (found && duplicates_) {
        const Record r = RecordAt(path);
        if (!KeyEquals(r, held) ||
            (r.valueSize == held.valueSize && std::memcmp(r.value, held.value, r.valueSize) == 0))
            break;
        found = Advance(path);
    }
    it.path_ = path;
}

BTreeIterator BTree::Find(const Record& key) {
    BTreePath path = Search(key, false);
    const bool found = Normalize(path) && !Compare(key, RecordAt(path));
    BTreeIterator it = found ? MakeIterator(path) : end_;
    cache_.Trim();
    return it;
}

BTreeIterator BTree::FindEx(const BTreeIterator& hint, const Record& key) {
    if (hint.tree_ != this || hint.version_ != version_ || hint.path_.depth == 0) return Find(key);
    BTreePath path = hint.path_;
    const BTreePage leaf = LoadAt(path, path.depth - 1);
    const uint32_t n = leaf.Count();
    const Record first{leaf.Key(0), leaf.KeySize(0), nullptr, 0};
    const Record last{leaf.Key(n - 1), leaf.KeySize(n - 1), nullptr, 0};
    // The leaf decides alone when the key lies inside it: an equal key may also end the leaf before.
    const bool inside = (duplicates_ ? Compare(first, key) : !Compare(key, first)) && !Compare(last, key);
    if (!inside) return Find(key);
    uint32_t lo = 0, hi = n;
    while (lo < hi) {
        const uint32_t mid = (lo + hi) / 2;
        if (!Compare({leaf.Key(mid), leaf.KeySize(mid), nullptr, 0}, key)) hi = mid;
        else lo = mid + 1;
    }
    path.slot[path.depth - 1] = lo;
    BTreeIterator it = Compare(key, RecordAt(path)) ? end_ : MakeIterator(path);
    cache_.Trim();
    return it;
}

BTreeIterator BTree::LowerBound(const Record& key) { return Bound(key, false); }

BTreeIterator BTree::UpperBound(const Record& key) { return Bound(key, true); }

BTreeIterator BTree::Bound(const Record& key, bool upper) {
    BTreePath path = Search(key, upper);
    Normalize(path);
    BTreeIterator it = MakeIterator(path);
    cache_.Trim();
    return it;
}

BTreeIterator BTree::Begin() {
    BTreeIterator it = MakeIterator(SeekRank(0));
    cache_.Trim();
    return it;
}

// ---- changing -----------------------------------------------------------------------------------

void BTree::CheckWritable() const {
    if (readOnly_) throw ReadOnlyException(Vantu::MessageInfo::FromText(u"The B-tree is read-only: " +
                                                                         Vantu::FromUtf8(Path())));
}

void BTree::CheckSize(const Record& record) const {
    if (uint64_t(record.keySize) + record.valueSize > recordLimit_) ThrowRecordTooLargeException(Path());
}

void BTree::SetOwner(uint32_t id, uint8_t owners) {
    owners_[id] = owners;
    if (owners == 0) {
        freeIds_.insert(id);
        cache_.Drop(id);
    }
}

// The lowest free id, so that the file stays dense and its tail can be cut.
uint32_t BTree::Allocate() {
    uint32_t id;
    if (freeIds_.empty()) {
        id = pageCount_++;
        owners_.resize(pageCount_, 0);
    } else {
        id = *freeIds_.begin();
        freeIds_.erase(freeIds_.begin());
    }
    owners_[id] = kWorking;
    return id;
}

void BTree::Release(uint32_t id) { SetOwner(id, owners_[id] & ~kWorking); }

// A page that only the working version uses may change in place; any other is copied to a new id first.
uint32_t BTree::Writable(uint32_t id) {
    if (owners_[id] == kWorking) {
        cache_.MarkDirty(id);
        return id;
    }
    const uint8_t* old = cache_.Get(id);
    const uint32_t copy = Allocate();
    std::memcpy(cache_.Create(copy), old, pageSize_);
    Release(id);
    return copy;
}

// Makes every page of the path writable, top down, and adds `countDelta` to the counts along it.
void BTree::MakeWritable(BTreePath& path, int32_t countDelta) {
    for (uint32_t i = 0; i < path.depth; ++i) {
        path.page[i] = Writable(path.page[i]);
        if (i == 0) {
            work_.root = path.page[0];
            continue;
        }
        BTreePage parent(cache_.Get(path.page[i - 1]), pageSize_);
        parent.SetChild(path.slot[i - 1], path.page[i]);
        parent.SetChildCount(path.slot[i - 1], parent.ChildCount(path.slot[i - 1]) + countDelta);
    }
}

void BTree::Changed() {
    dirty_ = true;
    ++version_;
}

std::pair<BTreeIterator, bool> BTree::Insert(const Record& record) {
    CheckWritable();
    CheckSize(record);
    if (work_.root == kNoPage) {
        work_.root = Allocate();
        BTreePage(cache_.Create(work_.root), pageSize_).Init(BTreePage::kLeaf);
        work_.height = 1;
    }
    BTreePath path = Search(record, duplicates_);
    if (!duplicates_) {
        BTreePath at = path;
        if (Normalize(at) && !Compare(record, RecordAt(at))) {
            BTreeIterator it = MakeIterator(at);
            cache_.Trim();
            return {it, false};
        }
    }
    const uint32_t rank = RankOf(path);
    MakeWritable(path, 1);
    InsertCell(path, path.depth - 1, record);
    ++work_.count;
    Changed();
    BTreeIterator it = MakeIterator(SeekRank(rank));
    cache_.Trim();
    return {it, true};
}

void BTree::InsertCell(BTreePath& path, uint32_t level, const Record& cell) {
    BTreePage page(cache_.Get(path.page[level]), pageSize_);
    if (page.Fits(BTreePage::CellSize(cell.keySize, cell.valueSize)))
        page.Insert(path.slot[level], cell.key, cell.keySize, cell.value, cell.valueSize);
    else
        Split(path, level, cell);
}

// Shares the page's cells and the new one between the page and a new right sibling, then hangs the
// sibling into the parent (a new root when the page was the root).
void BTree::Split(BTreePath& path, uint32_t level, const Record& cell) {
    const uint32_t leftId = path.page[level], s = path.slot[level];
    BTreePage left(cache_.Get(leftId), pageSize_);
    const uint32_t m = SplitIndex(left, s, BTreePage::CellSize(cell.keySize, cell.valueSize));
    const uint32_t rightId = Allocate();
    BTreePage right(cache_.Create(rightId), pageSize_);
    right.Init(left.GetType());
    if (s < m) {
        left.MoveTail(m - 1, right);
        left.Insert(s, cell.key, cell.keySize, cell.value, cell.valueSize);
    } else {
        left.MoveTail(m, right);
        right.Insert(s - m, cell.key, cell.keySize, cell.value, cell.valueSize);
    }
    const std::vector<uint8_t> separator(right.Key(0), right.Key(0) + right.KeySize(0));
    if (!left.IsLeaf()) {  // a branch's first key is never read: the parent holds it
        uint8_t child[BTreePage::kBranchValueSize];
        std::memcpy(child, right.Value(0), sizeof child);
        right.Remove(0);
        right.Insert(0, nullptr, 0, child, sizeof child);
    }
    auto count = [](const BTreePage& p) { return p.IsLeaf() ? uint64_t(p.Count()) : p.SumChildCounts(); };
    uint8_t link[BTreePage::kBranchValueSize];
    auto setLink = [&](uint32_t id, uint64_t n) {
        for (int b = 0; b < 4; ++b) {
            link[b] = uint8_t(id >> (8 * b));
            link[4 + b] = uint8_t(n >> (8 * b));
        }
    };
    const Record sepCell{separator.data(), static_cast<uint32_t>(separator.size()), link, sizeof link};
    if (level == 0) {
        if (work_.height >= BTreePath::kMaxDepth) file_.ThrowCorrupt("tree too deep");
        const uint32_t rootId = Allocate();
        BTreePage root(cache_.Create(rootId), pageSize_);
        root.Init(BTreePage::kBranch);
        setLink(leftId, count(left));
        root.Insert(0, nullptr, 0, link, sizeof link);
        setLink(rightId, count(right));
        root.Insert(1, sepCell.key, sepCell.keySize, link, sizeof link);
        work_.root = rootId;
        ++work_.height;
        return;
    }
    BTreePage parent(cache_.Get(path.page[level - 1]), pageSize_);
    parent.SetChildCount(path.slot[level - 1], static_cast<uint32_t>(count(left)));
    setLink(rightId, count(right));
    ++path.slot[level - 1];
    InsertCell(path, level - 1, sepCell);
}

void BTree::RemoveCell(BTreePath& path, uint32_t level) {
    BTreePage page(cache_.Get(path.page[level]), pageSize_);
    page.Remove(path.slot[level]);
    if (level == 0) {
        if (page.Count() == 0) {
            Release(work_.root);
            work_.root = kNoPage;
            work_.height = 0;
        }
        // A branch root with one child hands the root to that child.
        while (work_.height > 1) {
            BTreePage root(cache_.Get(work_.root), pageSize_);
            if (root.Count() != 1) break;
            const uint32_t child = root.Child(0);
            Release(work_.root);
            work_.root = child;
            --work_.height;
        }
        return;
    }
    if (page.Count() == 0) {
        Release(path.page[level]);
        RemoveCell(path, level - 1);
    } else if (page.UsedBytes() < pageSize_ / 4 * kMergeBelowQuarters) {
        TryMerge(path, level);
    }
}

// Moves the right one of the page and a neighbour into the left one when both fit in one page.
void BTree::TryMerge(BTreePath& path, uint32_t level) {
    BTreePage parent(cache_.Get(path.page[level - 1]), pageSize_);
    const uint32_t s = path.slot[level - 1];
    const uint32_t l = s > 0 ? s - 1 : s, r = l + 1;
    if (r >= parent.Count()) return;
    const uint32_t childLevel = path.depth - 1 - level;
    BTreePage right = Load(parent.Child(r), childLevel);
    const BTreePage leftRO = Load(parent.Child(l), childLevel);
    const uint32_t bytes = leftRO.UsedBytes() + right.UsedBytes() - BTreePage::kHeaderSize + parent.KeySize(r);
    if (bytes > pageSize_ / 4 * kMergeFitQuarters) return;
    const uint32_t leftId = Writable(parent.Child(l));
    parent.SetChild(l, leftId);
    BTreePage left(cache_.Get(leftId), pageSize_);
    right = BTreePage(cache_.Get(parent.Child(r)), pageSize_);
    uint32_t from = 0;
    if (!right.IsLeaf()) {  // the right page's first child takes the parent's key for it
        left.Insert(left.Count(), parent.Key(r), parent.KeySize(r), right.Value(0), right.ValueSize(0));
        from = 1;
    }
    for (uint32_t i = from; i < right.Count(); ++i)
        left.Insert(left.Count(), right.Key(i), right.KeySize(i), right.Value(i), right.ValueSize(i));
    parent.SetChildCount(l, parent.ChildCount(l) + parent.ChildCount(r));
    Release(parent.Child(r));
    path.slot[level - 1] = r;
    RemoveCell(path, level - 1);
}

void BTree::EraseAt(BTreePath& path) {
    MakeWritable(path, -1);
    RemoveCell(path, path.depth - 1);
    --work_.count;
    Changed();
}

BTreeIterator BTree::Update(const BTreeIterator& at, const Record& record) {
    CheckWritable();
    Refresh(at);
    if (at.path_.depth == 0) return end_;
    BTreePath path = at.path_;
    const Record old = RecordAt(path);
    const Record changed{old.key, old.keySize, record.value, record.valueSize};
    CheckSize(changed);
    const uint32_t rank = RankOf(path);
    MakeWritable(path, 0);
    BTreePage leaf(cache_.Get(path.page[path.depth - 1]), pageSize_);
    const uint32_t s = path.slot[path.depth - 1];
    if (leaf.ValueSize(s) == record.valueSize) {
        std::memcpy(leaf.MutableValue(s), record.value, record.valueSize);
    } else {
        const std::vector<uint8_t> key(leaf.Key(s), leaf.Key(s) + leaf.KeySize(s));
        leaf.Remove(s);
        InsertCell(path, path.depth - 1, {key.data(), static_cast<uint32_t>(key.size()), record.value, record.valueSize});
    }
    Changed();
    BTreeIterator it = MakeIterator(SeekRank(rank));
    cache_.Trim();
    return it;
}

bool BTree::Erase(const BTreeIterator& at, bool& nextValid, BTreeIterator& next) {
    CheckWritable();
    nextValid = false;
    if (at.tree_ != this) return false;
    Refresh(at);
    if (at.path_.depth == 0) return false;
    BTreePath path = at.path_;
    const uint32_t rank = RankOf(path);
    EraseAt(path);
    next = MakeIterator(SeekRank(rank));
    nextValid = true;
    cache_.Trim();
    return true;
}

uint32_t BTree::Erase(const Record& key) {
    CheckWritable();
    uint32_t erased = 0;
    for (;;) {
        BTreePath path = Search(key, false);
        if (!Normalize(path) || Compare(key, RecordAt(path))) break;
        EraseAt(path);
        ++erased;
    }
    cache_.Trim();
    return erased;
}

// ---- transactions -------------------------------------------------------------------------------

void BTree::PreCommit() {
    if (!dirty_) return;
    CheckWritable();
    cache_.WriteDirty();
    file_.Sync();
    BTreeState next = work_;
    next.sequence = committed_.sequence + 1;
    file_.WriteState(BTreeFile::kPending, next);
    pending_ = next;
    work_.sequence = next.sequence;
    hasPending_ = true;
    dirty_ = false;
    for (uint32_t id = 0; id < pageCount_; ++id) {
        const uint8_t o = owners_[id];
        if (o) SetOwner(id, (o & ~kPending) | ((o & kWorking) ? kPending : 0));
    }
}

void BTree::Commit() {
    PreCommit();
    if (!hasPending_) return;
    CheckWritable();
    file_.WriteState(BTreeFile::kCommitted, pending_);
    file_.DeleteState(BTreeFile::kPending);
    committed_ = pending_;
    hasPending_ = false;
    for (uint32_t id = 0; id < pageCount_; ++id) {
        const uint8_t o = owners_[id];
        if (o) SetOwner(id, (o & kWorking) | ((o & kPending) ? kCommitted : 0));
    }
    TruncateTail();
}

void BTree::Rollback() {
    if (!hasPending_ && !dirty_) return;
    CheckWritable();
    if (hasPending_) file_.DeleteState(BTreeFile::kPending);
    hasPending_ = false;
    dirty_ = false;
    work_ = committed_;
    ++version_;
    for (uint32_t id = 0; id < pageCount_; ++id) {
        const uint8_t o = owners_[id];
        if (o) SetOwner(id, (o & kCommitted) ? (kCommitted | kWorking) : 0);
    }
    TruncateTail();
}

// Free pages at the end of the file go; no version of the tree refers to them.
void BTree::TruncateTail() {
    const uint32_t before = pageCount_;
    while (pageCount_ > 0 && owners_[pageCount_ - 1] == 0) freeIds_.erase(--pageCount_);
    owners_.resize(pageCount_);
    if (pageCount_ < before || file_.PageCount() > pageCount_) file_.Truncate(pageCount_);
}

void BTree::ReadOnly(bool readOnly) {
    if (readOnly == readOnly_) return;
    file_.SetReadOnly(readOnly);
    readOnly_ = readOnly;
}

// ---- iterators ----------------------------------------------------------------------------------

void RecordCopy::Assign(const Record& r) {
    size_ = r.keySize + r.valueSize;
    keySize_ = r.keySize;
    uint8_t* d = inline_;
    if (size_ > kInline) {
        heap_.resize(size_);
        d = heap_.data();
    }
    if (r.keySize) std::memcpy(d, r.key, r.keySize);
    if (r.valueSize) std::memcpy(d + r.keySize, r.value, r.valueSize);
}

bool BTreeIterator::IsEnd() const {
    if (tree_) tree_->Refresh(*this);
    return path_.depth == 0;
}

bool BTreeIterator::operator==(const BTreeIterator& other) const {
    if (tree_ != other.tree_) return false;
    if (!tree_) return true;
    tree_->Refresh(*this);
    tree_->Refresh(other);
    if (path_.depth != other.path_.depth) return false;
    return path_.depth == 0 ||
           (path_.page[path_.depth - 1] == other.path_.page[path_.depth - 1] &&
            path_.slot[path_.depth - 1] == other.path_.slot[path_.depth - 1]);
}

BTreeIterator& BTreeIterator::operator++() {
    tree_->Refresh(*this);
    if (tree_->Advance(path_)) record_.Assign(tree_->RecordAt(path_));
    else record_.Assign({});
    tree_->cache_.Trim();  // a scan of the whole tree keeps to the cache's size
    return *this;
}

int64_t BTreeIterator::operator-(const BTreeIterator& other) const {
    tree_->Refresh(*this);
    tree_->Refresh(other);
    return int64_t(tree_->RankOf(path_)) - int64_t(tree_->RankOf(other.path_));
}

}  // namespace VantuBTree
