#include "SarIndexChecker.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <set>

#include "FileCollections.h"
#include "FileDocIdIndexId.h"
#include "FileSmallTerms.h"
#include "Lexicon.h"
#include "SarIndexInfo.h"
#include "SarTransaction.h"
#include "SarTransactionRecords.h"
#include "core/Exception.h"
#include "core/Text.h"
#include "file/FileSystem.h"

namespace Ostrel {

namespace {

// Past this many findings of one rule in one file the rest are only counted: one damage can repeat widely.
constexpr size_t kFindingsPerRule = 20;
constexpr uint32_t kFirstSmallTerm = 3000000000u;
constexpr uint32_t kNoDocumentId = DocIDWeightStruct::kDocumentIdMask;

using FreeList = std::map<uint64_t, uint64_t>;

// A live block of a data file, and who holds it.
struct Extent {
    uint64_t offset;
    uint64_t size;
    std::string owner;
};

class SliceChecker {
public:
    SliceChecker(const std::string& directory, SarCheckReport& report) : directory_(directory), report_(report) {}

    void Run() {
        Guard("", [&] { CheckTransactions(); });
        for (const auto& log : kLogs) Guard(log.first, [&] { CheckLog(log.first, log.second); });
        Guard(SarIndexInfo::kFileName, [&] { CheckInfo(); });
        Guard(FileIndexedDocuments::kFileName, [&] { CheckDocuments(); });
        Guard(FileDocIdIndexId::kFileName, [&] { CheckDocumentMap(); });
        Guard("Lexicon", [&] { CheckLexicon(); });
        Guard(FileIndexedTerms::kFileName, [&] { CheckTerms(); });
        Guard(FileCollections::kFileName, [&] { CheckLists(FileCollections::kFileName, true); });
        Guard(FileSmallTerms::kFileName, [&] { CheckLists(FileSmallTerms::kFileName, false); });
        for (const auto& [key, count] : suppressed_)
            report_.Add({key.first, 0, key.second, std::to_string(count) + " more findings of this rule", false});
    }

private:
    static constexpr std::pair<const char*, bool> kLogs[] = {
        {"Documents.dtr", false}, {"Terms.ttr", true}, {"Collections.ctr", true}, {"SmallTerms.ctr", true}};

    void Fault(const std::string& file, uint64_t offset, const std::string& rule, const std::string& detail) {
        Add({file, offset, rule, detail, false});
    }
    void Info(const std::string& file, const std::string& rule, const std::string& detail) {
        Add({file, 0, rule, detail, true});
    }
    void Add(SarCheckFinding finding) {
        if (++perRule_[{finding.file, finding.rule}] > kFindingsPerRule) {
            ++suppressed_[{finding.file, finding.rule}];
            return;
        }
        report_.Add(std::move(finding));
    }

    // Runs one check; damage, a file error or a failed allocation becomes a finding instead of an exception.
    template <class F>
    void Guard(const std::string& file, F&& check) {
        try {
            check();
        } catch (const SarCheckDamage& damage) {
            Add(damage.finding);
        } catch (const Vantu::BaseException& e) {
            Fault(file, 0, "read-error", e.WhatUtf8());
        } catch (const std::bad_alloc&) {
            Fault(file, 0, "read-error", "a count asks for more memory than there is");
        }
    }

    void Progress(uint64_t bytes) {
        report_.bytesChecked += bytes;
        if (report_.progress && report_.bytesChecked >= nextProgress_) {
            report_.progress(report_.bytesChecked, report_.bytesTotal);
            nextProgress_ = report_.bytesChecked + std::max<uint64_t>(report_.bytesTotal / 100, 1);
        }
    }

    bool Exists(const std::string& name) const { return VantuFile::FileExists(directory_ + "/" + name); }

    // A store whose commit log is still there holds data that only the replay makes whole.
    bool Pending(const std::string& store) {
        if (!pendingStores_.count(store)) return false;
        Info(store, "data-skipped", "a pending commit log: the data files are checked after recovery");
        return true;
    }

    // ---- Slice transactions and commit logs ----

    void CheckTransactions() {
        for (const std::string& path : VantuFile::ListFiles(directory_, kTransactionPattern)) {
            const std::string name = path.substr(path.find_last_of('/') + 1);
            Guard(name, [&] { CheckTransaction(name); });
        }
    }

    void CheckTransaction(const std::string& name) {
        SarCheckFile file(directory_, name);
        uint32_t header[3];
        file.Read(0, header, sizeof header, "transaction-header");
        if (header[0] != SarTransaction::kMagic) return Fault(name, 0, "transaction-header", "not a transaction file");
        const std::string state = name.substr(name.find_last_of('.'));
        if (state == Vantu::ToUtf8(kTransactionBeingWritten))
            return Info(name, "transaction-being-written", "recovery deletes it");
        Info(name, "transaction-pending", "a slice transaction not yet applied");
        // Reading a file with a resume position would write its header back on close.
        if (header[2] != 0) return;
        try {
            TransactionContents::Decode(file.Path(), false);
        } catch (const Vantu::BaseException&) {
            try {
                TransactionContents::Decode(file.Path(), true);
            } catch (const Vantu::BaseException& e) {
                Fault(name, 0, "transaction-decode", e.WhatUtf8());
            }
        }
    }

    // Reads a log's body by its own records up to the end record.
    class LogReader {
    public:
        explicit LogReader(SarTransaction::Stream& stream) : stream_(stream) {}
        template <class V>
        V Get() {
            V value;
            stream_.GetScalar(value);
            position_ += sizeof value;
            return value;
        }
        void Skip(uint64_t bytes) {
            uint8_t round[4096];
            for (uint64_t left = bytes; left > 0;) {
                const size_t take = size_t(std::min<uint64_t>(left, sizeof round));
                stream_.GetExact(round, take);
                left -= take;
                position_ += take;
            }
        }
        uint64_t Position() const { return position_; }

    private:
        SarTransaction::Stream& stream_;
        uint64_t position_ = 0;
    };

    void CheckLog(const std::string& name, bool compressed) {
        if (!Exists(name)) return;
        const std::string store = name.substr(0, name.find('.'));
        pendingStores_.insert(store);
        Info(name, "pending-log", "a commit log that the store replays or drops at its next start");
        SarTransaction log(Vantu::FromUtf8(directory_ + "/" + name), compressed);
        log.Open(true);
        // Offsets of a plain log are file offsets; those of a deflated one count body bytes.
        LogReader reader(log.GetStream());
        const uint64_t base = compressed ? 0 : SarTransaction::kHeaderSize;
        uint64_t recordAt = 0;
        try {
            const bool ended = store == FileIndexedDocuments::kFileName ? WalkDocumentLog(reader, recordAt)
                               : store == FileIndexedTerms::kFileName   ? WalkTermLog(reader, recordAt)
                                                                        : WalkListLog(reader, recordAt);
            if (!ended) Fault(name, base + recordAt, "log-frame", "an unknown record");
        } catch (const Vantu::BaseException&) {
            Fault(name, base + recordAt, "log-unended", "the log ends inside a record or without its end record");
        }
    }

    static void SkipFreeList(LogReader& log, uint64_t pairBytes) { log.Skip(log.Get<uint32_t>() * pairBytes); }

    // Each walk returns true at the end record and false at a record it doesn't know.
    static bool WalkDocumentLog(LogReader& log, uint64_t& at) {
        log.Get<uint32_t>();
        log.Get<uint64_t>();
        for (;;) {
            at = log.Position();
            switch (log.Get<uint32_t>()) {
                case FileIndexedDocuments::kAddDocument: log.Get<uint64_t>(); log.Skip(log.Get<uint32_t>()); break;
                case FileIndexedDocuments::kDeleteDocument: log.Skip(10); break;
                case FileIndexedDocuments::kIndexRecords:
                case FileIndexedDocuments::kUpdateIndex: log.Get<uint32_t>(); log.Skip(log.Get<uint32_t>()); break;
                case FileIndexedDocuments::kEndOfLog: SkipFreeList(log, 16); return true;
                default: return false;
            }
        }
    }

    static bool WalkTermLog(LogReader& log, uint64_t& at) {
        log.Skip(4 + 8 + 4 * FileIndexedTerms::kPositionFiles);
        for (;;) {
            at = log.Position();
            switch (log.Get<uint32_t>()) {
                case FileIndexedTerms::kPositions: log.Skip(8); log.Skip(log.Get<uint32_t>()); break;
                case FileIndexedTerms::kIndexRecords:
                    log.Get<uint32_t>();
                    log.Skip(uint64_t(log.Get<uint32_t>()) * FileIndexedTerms::IndexFileStruct::kSize);
                    break;
                case FileIndexedTerms::kAppendChunk: log.Skip(20); log.Skip(log.Get<uint32_t>()); break;
                case FileIndexedTerms::kRegion: log.Get<uint64_t>(); log.Skip(log.Get<uint32_t>()); break;
                case FileIndexedTerms::kEndOfLog: SkipFreeList(log, 16); return true;
                default: return false;
            }
        }
    }

    static bool WalkListLog(LogReader& log, uint64_t& at) {
        log.Skip(8);
        for (;;) {
            at = log.Position();
            switch (log.Get<uint32_t>()) {
                case FileDocIDList::kSaveInfo: log.Skip(12); log.Skip(log.Get<uint32_t>()); break;
                case FileDocIDList::kSaveIndex: log.Skip(4 + FileDocIDList::kRecordSize); break;
                case FileDocIDList::kEndOfLog: SkipFreeList(log, 8); return true;
                default: return false;
            }
        }
    }

    // ---- Counters ----

    void CheckInfo() {
        const std::string path = SarIndexInfo::LoadPath(directory_);
        if (path.empty()) return;
        const std::string name = path.substr(path.find_last_of('/') + 1);
        if (Exists(std::string(SarIndexInfo::kFileName) + ".new") && name == SarIndexInfo::kFileName)
            Info(name, "info-pending", "a pre-committed \"Index.info.new\" that recovery commits or drops");
        try {
            SarIndexInfo::CheckVersion(path);
            SarIndexInfo info;
            info.Load(path, true);
            info_ = std::move(info);
        } catch (const Vantu::BaseException& e) {
            Fault(name, 0, "info-decode", e.WhatUtf8());
        }
        if (info_ && info_->deletedBits.size() != (uint64_t(info_->deletedBitCount) + 7) / 8)
            Fault(name, 0, "info-decode", "the deleted-document bits don't match their count");
    }

    bool Deleted(uint32_t documentId) const {
        return info_ && documentId < info_->deletedBitCount &&
               (info_->deletedBits[documentId >> 3] & (0x80 >> (documentId & 7)));
    }

    // ---- Free lists ----

    // The list a reopened store would load, or nothing when its file is damaged (a finding then).
    std::optional<FreeList> ReadFreeList(const std::string& name, size_t width) {
        const std::string chosen = Exists(name + ".new") ? name + ".new" : name;
        SarCheckFile file(directory_, chosen);
        FreeList blocks;
        if (!file.Exists()) {
            blocks[0] = width == 8 ? ~uint64_t(0) : 0xFFFFFFFFu;
            return blocks;
        }
        const size_t record = 2 * width;
        if (file.Size() < 4 || (file.Size() - 4) % record || file.Size() > (uint64_t(1) << 32)) {
            Fault(chosen, 0, "free-list-file", "its length is not a whole list");
            return std::nullopt;
        }
        const std::string bytes = file.ReadAll();
        auto field = [&](size_t at, size_t size) {
            uint64_t v = 0;
            for (size_t i = size; i-- > 0;) v = v << 8 | uint8_t(bytes[at + i]);
            return v;
        };
        if (field(0, 4) != (bytes.size() - 4) / record) {
            Fault(chosen, 0, "free-list-file", "its count doesn't match its length");
            return std::nullopt;
        }
        const uint64_t limit = width == 8 ? ~uint64_t(0) : 0xFFFFFFFFu;
        uint64_t end = 0;
        for (size_t at = 4; at < bytes.size(); at += record) {
            const uint64_t offset = field(at, width), size = field(at + width, width);
            if (size == 0 || offset < end || offset > limit - size) {
                Fault(chosen, at, "free-list-file", "a block that is empty, out of order or out of range");
                return std::nullopt;
            }
            blocks[offset] = size;
            end = offset + size;
        }
        if (blocks.empty()) blocks[0] = limit;
        return blocks;
    }

    // Every byte of the data file lies in exactly one live block or in the free list.
    void CheckCoverage(const std::string& data, uint64_t fileSize, std::vector<Extent>& blocks,
                       const std::string& freeName, size_t width) {
        const std::optional<FreeList> free = ReadFreeList(freeName, width);
        if (!free) return;
        struct Piece {
            uint64_t offset, size;
            const std::string* owner;  // null for a free block
        };
        std::vector<Piece> pieces;
        for (const Extent& block : blocks) pieces.push_back({block.offset, block.size, &block.owner});
        for (const auto& [offset, size] : *free) pieces.push_back({offset, size, nullptr});
        std::sort(pieces.begin(), pieces.end(), [](const Piece& a, const Piece& b) { return a.offset < b.offset; });
        uint64_t covered = 0;
        const Piece* last = nullptr;
        for (const Piece& piece : pieces) {
            if (piece.size == 0) continue;
            if (piece.offset < covered) {
                const bool withFree = !piece.owner || !last->owner;
                const std::string who = piece.owner ? *piece.owner : (last->owner ? *last->owner : "");
                Fault(withFree ? freeName : data, piece.offset, withFree ? "free-list-overlap" : "block-overlap",
                      "the block of " + who + " overlaps another");
            } else if (piece.offset > covered && covered < fileSize) {
                Fault(data, covered, "leaked-block",
                      std::to_string(std::min(piece.offset, fileSize) - covered) +
                          " bytes in no block and not free");
            }
            if (piece.offset + piece.size > covered || piece.offset + piece.size < piece.offset) {
                covered = piece.offset + piece.size < piece.offset ? ~uint64_t(0) : piece.offset + piece.size;
                last = &piece;
            }
        }
        if (covered < fileSize) Fault(data, covered, "leaked-block", "the file's tail is in no block and not free");
    }

    // ---- Documents ----

    void CheckDocuments() {
        SarDocumentFiles files(directory_);
        if (!files.index.Exists() && !files.data.Exists()) return;
        if (Pending(FileIndexedDocuments::kFileName)) return;
        const uint64_t size = files.index.Size();
        if (size % FileIndexedDocuments::kRecordSize)
            Fault(files.index.Name(), size - size % FileIndexedDocuments::kRecordSize, "file-size",
                  "not a whole number of 27-byte records");
        numberOfDocuments_ = files.RecordCount();
        if (info_ && info_->deletedBitCount > 0)
            for (uint32_t id = numberOfDocuments_.value(); id < info_->deletedBitCount; ++id)
                if (Deleted(id)) Fault(SarIndexInfo::kFileName, 0, "deleted-past-end", "document " + std::to_string(id));
        std::vector<Extent> blocks;
        for (uint32_t id = 0; id < *numberOfDocuments_; ++id) {
            Guard(files.index.Name(), [&] { CheckDocument(files, id, blocks); });
            Progress(FileIndexedDocuments::kRecordSize);
        }
        CheckCoverage(files.data.Name(), files.data.Size(), blocks, files.data.Name() + ".pty", 8);
        CheckCollectionCounts();
    }

    void CheckDocument(const SarDocumentFiles& files, uint32_t id, std::vector<Extent>& blocks) {
        const uint64_t at = uint64_t(id) * FileIndexedDocuments::kRecordSize;
        const FileIndexedDocuments::IndexFileStruct record = files.ReadRecord(id);
        if (record.Blank()) {
            if (record.size != 0 || record.weight != RankingEngineDocWeight{})
                Fault(files.index.Name(), at, "document-blank", "a blank record with a size or a weight");
            return;
        }
        if (Deleted(id))
            Fault(files.index.Name(), at, "deleted-not-blank", "document " + std::to_string(id) + " is deleted");
        IndexedDocument document;
        std::map<std::u16string, uint32_t> words;
        const uint64_t length = files.ReadBlock(id, record, document, words);
        blocks.push_back({record.offset, length, "document " + std::to_string(id)});
        Progress(length);
        RankingEngineDocWeight signature;
        std::copy(document.signature.begin(), document.signature.end(), signature.bytes.begin());
        signature.SetRankValue(record.weight.RankValue());
        if (signature != record.weight)
            Fault(files.index.Name(), at, "document-weight", "the weight differs from the stored document's");
        liveDocuments_[document.collection].insert(id);
    }

    void CheckCollectionCounts() {
        if (!info_) return;
        std::map<uint16_t, uint64_t> counted;
        for (const SarCollectionInfo& collection : info_->collections)
            counted[collection.id] = collection.documents;
        for (const auto& [collection, documents] : liveDocuments_) counted.emplace(collection, 0);
        for (const auto& [collection, expected] : counted) {
            const size_t found = liveDocuments_.count(collection) ? liveDocuments_[collection].size() : 0;
            if (found != expected)
                Fault(SarIndexInfo::kFileName, 0, "collection-count",
                      "collection " + std::to_string(collection) + " counts " + std::to_string(expected) +
                          " documents, the store holds " + std::to_string(found));
        }
    }

    // ---- Trees ----

    // Walks the committed state, and the pending one when there is one.
    void WalkTree(const std::string& name, const SarTreeOrder& order, const SarTreeVisitor& visit) {
        Guard(name, [&] {
            if (!Exists(name)) return;
            SarWalkTree(directory_, name, false, order, visit);
            if (SarWalkTree(directory_, name, true, order, [](const std::string&, const std::string&) {}))
                Info(name, "tree-pending", "a pre-committed state that recovery commits or rolls back");
        });
    }

    void CheckDocumentMap() {
        const std::string name = FileDocIdIndexId::kFileName;
        std::optional<uint32_t> next;
        std::set<uint32_t> ids;
        WalkTree(name, SarU32KeyBefore, [&](const std::string& key, const std::string& value) {
            const uint32_t index = SarU32Value(key), id = SarU32Value(value);
            if (key.size() != 4 || value.size() != 4) return Fault(name, 0, "docmap-record", "not 4-byte fields");
            if (index == 0xFFFFFFFF) {
                next = id;
            } else if (id >= kNoDocumentId || !ids.insert(id).second) {
                Fault(name, 0, "docmap-id", "index document " + std::to_string(index) + " maps to " + std::to_string(id));
            }
        });
        if (!ids.empty() && (!next || *ids.rbegin() >= *next))
            Fault(name, 0, "docmap-counter", "a mapped document at or past the next free id");
    }

    void CheckLexicon() {
        for (const char* tree : {Lexicon::kRareTermsFileName, Lexicon::kFrequentTermsFileName, Lexicon::kStringFieldsFileName})
            WalkTree(tree, SarStringKeyBefore, [&](const std::string& key, const std::string& value) {
                NameTerm(tree, key, SarU32Value(value));
            });
        for (const char* tree : {Lexicon::kDoubleFieldsFileName, Lexicon::kDateFieldsFileName, Lexicon::kLongFieldsFileName})
            WalkTree(tree, SarStringKeyBefore, [&](const std::string& key, const std::string& value) {
                CheckStringKey(tree, key);
                if (numberOfDocuments_ && SarU32Value(value) >= *numberOfDocuments_)
                    Fault(tree, 0, "field-document", "document " + std::to_string(SarU32Value(value)) + " past the store");
            });
    }

    void CheckStringKey(const std::string& tree, const std::string& key) {
        if (key.size() < 2 || uint32_t(uint8_t(key[0]) | uint8_t(key[1]) << 8) != key.size() - 2)
            Fault(tree, 0, "tree-key", "a key whose length prefix doesn't match it");
    }

    void NameTerm(const std::string& tree, const std::string& key, uint32_t id) {
        CheckStringKey(tree, key);
        const bool small = id >= kFirstSmallTerm;
        if (small && tree != Lexicon::kFrequentTermsFileName)
            Fault(tree, 0, "term-id", "a small term id " + std::to_string(id) + " outside \"Lexicon-Freq.ltr\"");
        if (info_ && id >= (small ? info_->nextSmallTermId : info_->nextTermId))
            Fault(tree, 0, "term-id", "term id " + std::to_string(id) + " at or past its counter in \"Index.info\"");
        if (!termTrees_.emplace(id, tree).second)
            Fault(tree, 0, "term-id-twice", "term id " + std::to_string(id) + " is also in " + termTrees_[id]);
    }

    // ---- Large-term postings ----

    void CheckTerms() {
        SarTermFiles files(directory_);
        if (!files.index.Exists() && !files.data.Exists()) return;
        if (Pending(FileIndexedTerms::kFileName)) return;
        const uint64_t size = files.index.Size();
        if (size % FileIndexedTerms::IndexFileStruct::kSize)
            Fault(files.index.Name(), size - size % FileIndexedTerms::IndexFileStruct::kSize, "file-size",
                  "not a whole number of 35-byte records");
        std::vector<Extent> blocks;
        const bool named = Exists(Lexicon::kRareTermsFileName) || Exists(Lexicon::kFrequentTermsFileName);
        for (uint32_t id = 0; id < files.RecordCount(); ++id) {
            Guard(files.index.Name(), [&] { CheckTerm(files, id, named, blocks); });
            Progress(FileIndexedTerms::IndexFileStruct::kSize);
        }
        CheckCoverage(files.data.Name(), files.data.Size(), blocks, files.data.Name() + ".pty", 8);
    }

    void CheckTerm(const SarTermFiles& files, uint32_t id, bool named, std::vector<Extent>& blocks) {
        const uint64_t at = uint64_t(id) * FileIndexedTerms::IndexFileStruct::kSize;
        const FileIndexedTerms::IndexFileStruct record = files.ReadRecord(id);
        const uint32_t documents = record.NumberOfDocuments();
        if (documents == 0) {
            if (record.bytes != FileIndexedTerms::IndexFileStruct().bytes)
                Fault(files.index.Name(), at, "term-fresh", "a term without postings whose record isn't fresh");  // D6
            return;
        }
        if (info_ && id >= info_->nextTermId)
            Fault(files.index.Name(), at, "term-id", "postings for an id past the term counter");
        if (named && !termTrees_.count(id))
            Fault(files.index.Name(), at, "term-unnamed", "term " + std::to_string(id) + " is in no dictionary tree");
        // A rare term that passes 25 documents through the transaction reader stays in "Lexicon.ltr": both trees
        // are sound for any count.
        if (documents <= FileIndexedTerms::kInlinePostings) CheckInlineRecord(files, record, at);
        else if (record.HasBlock()) blocks.push_back({record.BlockStart(), record.AllocatedSize(), "term " + std::to_string(id)});
        const std::vector<SarTermPosting> postings = files.ReadPostings(id, record);
        if (documents > FileIndexedTerms::kInlinePostings) Progress(record.BlockEnd() - record.BlockStart());
        if (postings.size() != documents)
            Fault(files.index.Name(), at, "term-count", "counts " + std::to_string(documents) + " postings, holds " +
                                                            std::to_string(postings.size()));
        for (size_t i = 0; i < postings.size(); ++i) {
            const uint32_t document = postings[i].posting.DocumentId();
            if (i > 0 && document <= postings[i - 1].posting.DocumentId()) {
                Fault(files.index.Name(), at, "posting-order", "term " + std::to_string(id) + ": document " +
                                                                   std::to_string(document) + " out of order");
                break;
            }
            if (numberOfDocuments_ && document >= *numberOfDocuments_)
                Fault(files.index.Name(), at, "posting-document", "term " + std::to_string(id) + ": document " +
                                                                      std::to_string(document) + " past the store");
            Guard(files.index.Name(), [&] { CheckPositions(files, id, postings[i], at); });
        }
    }

    void CheckInlineRecord(const SarTermFiles& files, const FileIndexedTerms::IndexFileStruct& record, uint64_t at) {
        bool clean = !record.HasPendingPosting();
        for (uint32_t i = record.NumberOfDocuments(); i < FileIndexedTerms::kInlinePostings; ++i)
            for (size_t b = 5 + i * 10; b < 15 + i * 10; ++b) clean = clean && record.bytes[b] == 0;
        if (!clean) Fault(files.index.Name(), at, "term-record", "bytes past the inline postings aren't zero");
    }

    void CheckPositions(const SarTermFiles& files, uint32_t id, const SarTermPosting& posting, uint64_t at) {
        const Vantu::FastVector<unsigned int> positions = files.ReadPositions(id, posting);
        const uint32_t count = posting.posting.PositionCount();
        const bool countFits = count == 0 ? positions.empty() || positions.size() >= DocIDWeightStruct::kPositionCountLimit
                                          : positions.size() == count;
        if (!countFits)
            Fault(files.index.Name(), at, "positions-count", "term " + std::to_string(id) + ", document " +
                                                                 std::to_string(posting.posting.DocumentId()) +
                                                                 ": the posting counts " + std::to_string(count) +
                                                                 " positions, its codes " + std::to_string(positions.size()));
    }

    // ---- Doc-id lists ----

    void CheckLists(const std::string& base, bool collections) {
        SarListFiles files(directory_, base);
        if (!files.index.Exists() && !files.data.Exists()) return;
        if (Pending(base)) return;
        const uint64_t size = files.index.Size();
        if (size % FileDocIDList::kRecordSize)
            Fault(files.index.Name(), size - size % FileDocIDList::kRecordSize, "file-size",
                  "not a whole number of 16-byte records");
        std::vector<Extent> blocks;
        for (uint32_t id = 0; id < files.RecordCount(); ++id) {
            Guard(files.index.Name(), [&] { CheckList(files, id, collections, blocks); });
            Progress(FileDocIDList::kRecordSize);
        }
        CheckCoverage(files.data.Name(), files.data.Size(), blocks, base + ".pty", 4);
        if (collections && numberOfDocuments_)
            for (const auto& [collection, documents] : liveDocuments_)
                if (collection >= files.RecordCount() && !documents.empty())
                    Fault(files.index.Name(), uint64_t(collection) * FileDocIDList::kRecordSize, "collection-list",
                          "collection " + std::to_string(collection) + " has documents and no list");
    }

    void CheckList(const SarListFiles& files, uint32_t id, bool collections, std::vector<Extent>& blocks) {
        const uint64_t at = uint64_t(id) * FileDocIDList::kRecordSize;
        const FileDocIDList::IndexFileStruct record = files.ReadRecord(id);
        if (!record.HasBlock()) {
            if (record.blockEnd != FileDocIDList::kNoBlock || record.allocatedSize != 0)
                Fault(files.index.Name(), at, "list-record", "a list without a block has an end or room");
        } else {
            blocks.push_back({record.blockStart, record.allocatedSize, "list " + std::to_string(id)});
        }
        const VantuAlgo::BitVector list = files.ReadList(id, record);
        if (record.HasBlock()) Progress(record.blockEnd - record.blockStart);
        if (numberOfDocuments_)
            for (uint32_t document = *numberOfDocuments_; document < list.size(); ++document)
                if (list[document]) {
                    Fault(files.index.Name(), at, "list-document", "list " + std::to_string(id) + " holds document " +
                                                                       std::to_string(document) + " past the store");
                    break;
                }
        if (collections && numberOfDocuments_ && id <= 0xFFFF) CompareCollection(files, id, list, at);
    }

    // A collection's list holds exactly its documents that the store holds.
    void CompareCollection(const SarListFiles& files, uint32_t id, const VantuAlgo::BitVector& list, uint64_t at) {
        const std::set<uint32_t>& live = liveDocuments_[uint16_t(id)];
        for (uint32_t document : live)
            if (!list[document])
                return Fault(files.index.Name(), at, "collection-list", "collection " + std::to_string(id) +
                                                                            " lacks document " + std::to_string(document));
        if (list.count() != live.size())
            Fault(files.index.Name(), at, "collection-list", "collection " + std::to_string(id) + " lists " +
                                                                 std::to_string(list.count()) + " documents, holds " +
                                                                 std::to_string(live.size()));
    }

    const std::string directory_;
    SarCheckReport& report_;
    uint64_t nextProgress_ = 0;
    std::map<std::pair<std::string, std::string>, size_t> perRule_;
    std::map<std::pair<std::string, std::string>, size_t> suppressed_;
    std::set<std::string> pendingStores_;
    std::optional<SarIndexInfo> info_;
    std::optional<uint32_t> numberOfDocuments_;
    std::map<uint16_t, std::set<uint32_t>> liveDocuments_;
    std::map<uint32_t, std::string> termTrees_;
};

uint64_t DataBytes(const std::string& directory) {
    uint64_t total = 0;
    for (const char* pattern : {"Documents.di?", "Terms.t??", "Terms.?.tps", "*.ci?"})
        for (const std::string& path : VantuFile::ListFiles(directory, pattern)) total += SarCheckFile(directory, path.substr(path.find_last_of('/') + 1)).Size();
    return total;
}

}  // namespace

size_t SarCheckReport::Faults() const {
    return size_t(std::count_if(findings.begin(), findings.end(), [](const SarCheckFinding& f) { return !f.information; }));
}

std::string SarCheckReport::ToString() const {
    std::string text;
    for (const SarCheckFinding& finding : findings) text += finding.ToString() + "\n";
    return text;
}

void CheckSlice(const std::string& directory, SarCheckReport& report) {
    report.bytesTotal = DataBytes(directory);
    SliceChecker(directory, report).Run();
}

}  // namespace Ostrel
