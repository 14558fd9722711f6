// The term dictionary of one slice: each term (UTF-8) to a 32-bit id, in two trees by how many documents the
// term has, with a small cache of frequent terms; it owns the two id counters. Any thread: queries look terms
// up while the reader thread adds them, and one section guards the dictionary.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CustomField.h"
#include "FileIndexedTerms.h"
#include "FileSmallTerms.h"
#include "SarIndexInfo.h"
#include "SarvaneInternalConfig.h"
#include "Term.h"
#include "core/LogEntryCallInterface.h"
#include "core/RefCounted.h"
#include "store/BTreeMap.h"
#include "store/BTreeMultiMap.h"

namespace Ostrel {

class Lexicon : public Vantu::SPRefCounter {
public:
    static constexpr const char* kRareTermsFileName = "Lexicon.ltr";
    static constexpr const char* kFrequentTermsFileName = "Lexicon-Freq.ltr";
    // The custom-field trees: string values to their term ids, and double, date and long values to the documents
    // that hold them.
    static constexpr const char* kStringFieldsFileName = "LexiconCFS.lcf";
    static constexpr const char* kDoubleFieldsFileName = "LexiconCFD.lcf";
    static constexpr const char* kDateFieldsFileName = "LexiconCFT.lcf";
    static constexpr const char* kLongFieldsFileName = "LexiconCFL.lcf";
    // Large terms take ids from 0, small terms (a custom field's list of documents) from here.
    static constexpr uint32_t kFirstSmallTermId = 3000000000u;
    // A term expected in this many documents or more goes to the frequent tree.
    static constexpr uint32_t kFrequentDocuments = 26;
    static constexpr size_t kCacheLimit = 1000;
    // The longest term in bytes that intake passes on: far below what a tree record holds, so that a committed
    // transaction can always be applied. A document with a longer term is refused where it enters.
    static constexpr size_t kMaxTermSize = 1000;
    // The document id of a custom field that only makes its field and value known.
    static constexpr uint32_t kNoDocument = 0xFFFFFF;

    // Opens both trees, under the configuration's read lock. `terms` holds the postings of the large terms and
    // `smallTerms` the document lists of the small ones; a compaction target, which only rebuilds its trees, has
    // neither.
    Lexicon(const Vantu::SmartPtr<SarvaneInternalConfig>& config, const Vantu::SmartPtr<FileIndexedTerms>& terms,
            const Vantu::SmartPtr<FileSmallTerms>& smallTerms, bool readOnly);

    // The id of `term`, given now when the term is new: from the small counter when `small`, else the large one.
    // An existing term keeps its id whatever `count` and `small` say.
    uint32_t AddTerm(const std::string& term, uint32_t count, bool small);
    // The id of `term`, a field alias resolved first; Term::kNoTermId for a term the dictionary doesn't know.
    uint32_t FindTerm(const std::string& term) const;
    // Moves a rare term to the frequent tree under the same id, once its documents passed 25.
    void PromoteTerm(const std::string& term);

    // Gives the term an id if it has none, then adds its postings; a rare term that passes 25 documents moves to
    // the frequent tree under the same id.
    void AddDocumentsForTerm(const std::string& term, const FileIndexedTerms::Operations& operations);
    // For a caller that took the id already: the term stays in the tree it stands in.
    void AddDocumentsForTerm(uint32_t termId, const FileIndexedTerms::Operations& operations);
    // A small term: the documents that have a custom field. It always stands in the frequent tree.
    void AddDocumentsForTerm(const std::string& term, const Vantu::FastVector<unsigned int>& documents);
    // Makes the field known with its type (fixed on first sight) and indexes its value: a string value is a term,
    // whose id comes back, given from the large counter when new; a double, date or long value lists `documentId`
    // under it (kNoDocument: the field only becomes known) and gives Term::kNoTermId. A field known with another
    // type raises SarInvalidCustomField (message 14) and changes nothing. The reader thread only.
    uint32_t AddCustomField(const CustomField& field, uint32_t documentId);
    // ORs the documents of a small term into `documents`; an unknown term changes nothing.
    void GetDocumentsListForSmallTerm(const std::string& term, VantuAlgo::BitVector& documents) const;
    // Null for a term the dictionary doesn't know, an alias resolved first; an empty Term for a known term
    // without postings.
    Vantu::SmartPtrToConst<Term> LoadTerm(const std::string& term, bool withPositions) const;
    bool GetOccurencesForDocument(const Term& term, uint32_t documentId,
                                  Vantu::SmartPtr<FileIndexedTerms::Occurence>& occurence,
                                  const DocIDWeightStruct*& cursor) const;

    // Aliases name custom fields ("@alias" to "@field"); a lookup of the alias finds the field's term.
    void ClearFieldAliases();
    void AddFieldAlias(const std::string& alias, const std::string& field);

    // The dictionary's part of a slice transaction, with the postings store's. A rollback also empties the cache:
    // an id cached for a term of the abandoned transaction is given out again to another term.
    void BeginTransaction();
    void PreCommit(const bool& cancel);
    void Commit(const bool& cancel, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log);
    void Rollback();
    void ForceQuit() const;
    // Once the slice's counters are loaded: the small terms take their list count from their file.
    void RecoveryDone();

    // The counters and custom-field table kept in "Index.info".
    void LoadInfo(const SarIndexInfo& info);
    void SaveInfo(SarIndexInfo& info) const;
    uint64_t GetDiskSpaceUsed() const;

    uint32_t GetNextTermId() const;
    uint32_t GetNextSmallTermId() const;

private:
    using Tree = VantuBTree::BTreeMap<std::string, uint32_t>;
    // A custom-field tree keyed by the field's encoded key, whose bytes order as the values do, with a lock of its
    // own. The custom-field index fills them; until then they open, commit and roll back empty.
    template <class T>
    struct FieldTree {
        FieldTree(const SarvaneInternalConfig& config, const char* name, SarvaneConfig::Size cacheSize, bool readOnly);
        mutable T tree;
        mutable std::mutex section;
    };
    using StringFieldTree = FieldTree<VantuBTree::BTreeMap<std::string, uint32_t>>;
    using ValueFieldTree = FieldTree<VantuBTree::BTreeMultiMap<std::string, uint32_t>>;

    // Runs `step` on each custom-field tree under its lock, in the order of the transaction steps: double, long,
    // date, string; `after` gets the share of a commit's progress reached after each (0.10 to 0.25).
    void ForEachFieldTree(const std::function<void(VantuBTree::BTree&)>& step,
                          const std::function<void(double)>& after = {}) const;

    // Enters or updates the field's entry of customFieldInfos_ and gives the type it is known with.
    uint8_t NoteCustomField(const std::string& name, uint8_t type, uint32_t documentId);

    // Under termsSection_.
    uint32_t Find(const std::string& term) const;
    std::string ResolveAlias(const std::string& term) const;

    const Vantu::SmartPtr<SarvaneInternalConfig> config_;
    const Vantu::SmartPtr<FileIndexedTerms> terms_;
    const Vantu::SmartPtr<FileSmallTerms> smallTerms_;
    uint32_t nextTermId_ = 0;
    uint32_t nextSmallTermId_ = kFirstSmallTermId;
    mutable Tree rareTerms_;
    mutable Tree frequentTerms_;
    std::map<std::string, uint32_t> frequentTermCache_;
    mutable std::mutex termsSection_;
    StringFieldTree stringCustomFields_;
    ValueFieldTree doubleCustomFields_;
    ValueFieldTree dateCustomFields_;
    ValueFieldTree longCustomFields_;
    // The fields seen, ascending by name; kept in "Index.info". Under termsSection_.
    std::vector<SarFieldInfo> customFieldInfos_;
    std::map<std::string, std::string> customFieldAliases_;
    mutable std::mutex aliasesSection_;
};

}  // namespace Ostrel
