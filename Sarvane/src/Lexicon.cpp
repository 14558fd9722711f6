#include "Lexicon.h"

#include <algorithm>
#include <bit>

#include "SarException.h"
#include "SarStoreFiles.h"

namespace Ostrel {

namespace {

constexpr uint32_t kPageSize = 0x10000;

// The key of a custom-field tree: the field's key, a 0 byte (no name holds one), then the value in bytes whose
// order is the values' order, so that all keys of a field stand together and a range of values is a range of keys.
std::string FieldTreeKey(const std::string& name, const CustomFieldValue& value) {
    std::string key = name;
    key.push_back('\0');
    const auto bigEndian = [&](uint64_t bits, int bytes) {
        for (int i = bytes - 1; i >= 0; --i) key.push_back(char(bits >> (8 * i)));
    };
    switch (value.GetForm()) {
    case CustomFieldValue::kString: key += value.GetString(); break;
    case CustomFieldValue::kDouble: {
        // Negative numbers turn all their bits, positive ones only the sign: the bytes then order as the numbers.
        const uint64_t bits = std::bit_cast<uint64_t>(value.GetDouble());
        bigEndian(bits >> 63 ? ~bits : bits | (uint64_t(1) << 63), 8);
        break;
    }
    case CustomFieldValue::kDate: bigEndian(value.GetDate().Seconds(), 4); break;
    case CustomFieldValue::kLong: bigEndian(uint32_t(value.GetLong()) ^ 0x80000000u, 4); break;
    }
    return key;
}

}  // namespace

Lexicon::Lexicon(const Vantu::SmartPtr<SarvaneInternalConfig>& config, const Vantu::SmartPtr<FileIndexedTerms>& terms,
                 const Vantu::SmartPtr<FileSmallTerms>& smallTerms, bool readOnly)
    : config_(config),
      terms_(terms),
      smallTerms_(smallTerms),
      rareTerms_(SarStorePath(*config, kRareTermsFileName), kPageSize,
                 SarStoreSize(*config, SarvaneConfig::kLexiconNonFreqCacheSize), readOnly),
      frequentTerms_(SarStorePath(*config, kFrequentTermsFileName), kPageSize,
                     SarStoreSize(*config, SarvaneConfig::kLexiconFreqCacheSize), readOnly),
      stringCustomFields_(*config, kStringFieldsFileName, SarvaneConfig::kLexiconStringCFCacheSize, readOnly),
      doubleCustomFields_(*config, kDoubleFieldsFileName, SarvaneConfig::kLexiconDoubleCFCacheSize, readOnly),
      dateCustomFields_(*config, kDateFieldsFileName, SarvaneConfig::kLexiconDateCFCacheSize, readOnly),
      longCustomFields_(*config, kLongFieldsFileName, SarvaneConfig::kLexiconLongCFCacheSize, readOnly) {}

template <class T>
Lexicon::FieldTree<T>::FieldTree(const SarvaneInternalConfig& config, const char* name, SarvaneConfig::Size cacheSize,
                                 bool readOnly)
    : tree(SarStorePath(config, name), kPageSize, SarStoreSize(config, cacheSize), readOnly) {}

void Lexicon::ForEachFieldTree(const std::function<void(VantuBTree::BTree&)>& step,
                               const std::function<void(double)>& after) const {
    const std::pair<VantuBTree::BTree*, std::mutex*> trees[] = {
        {&doubleCustomFields_.tree, &doubleCustomFields_.section},
        {&longCustomFields_.tree, &longCustomFields_.section},
        {&dateCustomFields_.tree, &dateCustomFields_.section},
        {&stringCustomFields_.tree, &stringCustomFields_.section}};
    double progress = 0.05;
    for (const auto& [tree, section] : trees) {
        {
            std::lock_guard<std::mutex> hold(*section);
            step(*tree);
        }
        if (after) after(progress += 0.05);
    }
}

uint32_t Lexicon::AddTerm(const std::string& term, uint32_t count, bool small) {
    std::lock_guard<std::mutex> hold(termsSection_);
    if (const auto cached = frequentTermCache_.find(term); cached != frequentTermCache_.end()) return cached->second;
    if (const Tree::iterator frequent = frequentTerms_.Find(term); frequent != frequentTerms_.end()) {
        if (frequentTermCache_.size() < kCacheLimit) frequentTermCache_.emplace(term, frequent->second);
        return frequent->second;
    }
    if (const Tree::iterator rare = rareTerms_.Find(term); rare != rareTerms_.end()) return rare->second;
    // The tree checks the record's size before the counter moves, so a refused term uses no id.
    const uint32_t id = small ? nextSmallTermId_ : nextTermId_;
    (count < kFrequentDocuments ? rareTerms_ : frequentTerms_).Insert(term, id);
    ++(small ? nextSmallTermId_ : nextTermId_);
    return id;
}

uint32_t Lexicon::Find(const std::string& term) const {
    if (const auto cached = frequentTermCache_.find(term); cached != frequentTermCache_.end()) return cached->second;
    for (Tree* tree : {&frequentTerms_, &rareTerms_})
        if (const Tree::iterator found = tree->Find(term); found != tree->end()) return found->second;
    return Term::kNoTermId;
}

std::string Lexicon::ResolveAlias(const std::string& term) const {
    if (!term.starts_with('@')) return term;
    std::lock_guard<std::mutex> hold(aliasesSection_);
    const auto alias = customFieldAliases_.find(term);
    return alias == customFieldAliases_.end() ? term : alias->second;
}

uint32_t Lexicon::FindTerm(const std::string& term) const {
    // The alias section is left before the dictionary's is taken: the two are never held together.
    const std::string resolved = ResolveAlias(term);
    std::lock_guard<std::mutex> hold(termsSection_);
    return Find(resolved);
}

void Lexicon::PromoteTerm(const std::string& term) {
    std::lock_guard<std::mutex> hold(termsSection_);
    const Tree::iterator rare = rareTerms_.Find(term);
    if (rare == rareTerms_.end()) return;
    const uint32_t id = rare->second;
    frequentTerms_.Insert(term, id);
    rareTerms_.Erase(term);
}

void Lexicon::AddDocumentsForTerm(const std::string& term, const FileIndexedTerms::Operations& operations) {
    const uint32_t id = AddTerm(term, uint32_t(operations.size()), false);
    if (terms_->AddDocumentsForTerm(id, operations)) PromoteTerm(term);
}

void Lexicon::AddDocumentsForTerm(uint32_t termId, const FileIndexedTerms::Operations& operations) {
    terms_->AddDocumentsForTerm(termId, operations);
}

void Lexicon::AddDocumentsForTerm(const std::string& term, const Vantu::FastVector<unsigned int>& documents) {
    smallTerms_->AddDocuments(AddTerm(term, kFrequentDocuments, true), documents);
}

uint8_t Lexicon::NoteCustomField(const std::string& name, uint8_t type, uint32_t documentId) {
    std::lock_guard<std::mutex> hold(termsSection_);
    const auto at = std::lower_bound(customFieldInfos_.begin(), customFieldInfos_.end(), name,
                                     [](const SarFieldInfo& info, const std::string& n) { return info.name < n; });
    const uint32_t highest = documentId == kNoDocument ? 0 : documentId;
    if (at == customFieldInfos_.end() || at->name != name) {
        customFieldInfos_.insert(at, SarFieldInfo{name, type, highest});
        return type;
    }
    if (at->type == type) at->highestDocumentId = std::max(at->highestDocumentId, highest);
    return at->type;
}

uint32_t Lexicon::AddCustomField(const CustomField& field, uint32_t documentId) {
    const std::string name = CustomField::MakeKey(field.Name());
    if (NoteCustomField(name, field.GetType(), documentId) != field.GetType())
        throw SarInvalidCustomField(SAR_MESSAGE(14, field.Name().substr(1)));
    const std::string key = FieldTreeKey(name, field.Value());
    const auto list = [&](ValueFieldTree& values) {
        std::lock_guard<std::mutex> hold(values.section);
        if (documentId != kNoDocument) values.tree.Insert(key, documentId);
        return Term::kNoTermId;
    };
    switch (field.GetType()) {
    case CustomField::kString: {
        std::lock_guard<std::mutex> hold(stringCustomFields_.section);
        if (const auto found = stringCustomFields_.tree.Find(key); found != stringCustomFields_.tree.end())
            return found->second;
        // The tree refuses a key too long before the counter moves, so a refused value uses no id.
        uint32_t id;
        {
            std::lock_guard<std::mutex> counter(termsSection_);
            id = nextTermId_;
        }
        stringCustomFields_.tree.Insert(key, id);
        std::lock_guard<std::mutex> counter(termsSection_);
        return nextTermId_++;
    }
    case CustomField::kDouble: return list(doubleCustomFields_);
    case CustomField::kDate: return list(dateCustomFields_);
    case CustomField::kLong: return list(longCustomFields_);
    default: return Term::kNoTermId;
    }
}

void Lexicon::GetDocumentsListForSmallTerm(const std::string& term, VantuAlgo::BitVector& documents) const {
    const std::string resolved = ResolveAlias(term);
    uint32_t id = Term::kNoTermId;
    {
        // A small term is never in the rare tree.
        std::lock_guard<std::mutex> hold(termsSection_);
        if (const auto cached = frequentTermCache_.find(resolved); cached != frequentTermCache_.end())
            id = cached->second;
        else if (const Tree::iterator found = frequentTerms_.Find(resolved); found != frequentTerms_.end())
            id = found->second;
    }
    if (id != Term::kNoTermId) smallTerms_->GetValidDocuments(id, documents);
}

Vantu::SmartPtrToConst<Term> Lexicon::LoadTerm(const std::string& term, bool withPositions) const {
    // FindTerm leaves the dictionary's section before the postings are read: a slow read holds no lock of it.
    const uint32_t id = FindTerm(term);
    if (id == Term::kNoTermId) return nullptr;
    if (!terms_) return Vantu::SmartPtr<Term>(new Term(id));
    return terms_->LoadTerm(id, withPositions);
}

bool Lexicon::GetOccurencesForDocument(const Term& term, uint32_t documentId,
                                       Vantu::SmartPtr<FileIndexedTerms::Occurence>& occurence,
                                       const DocIDWeightStruct*& cursor) const {
    return terms_->GetOccurencesForDocument(term, documentId, occurence, cursor);
}

void Lexicon::ClearFieldAliases() {
    std::lock_guard<std::mutex> hold(aliasesSection_);
    customFieldAliases_.clear();
}

void Lexicon::AddFieldAlias(const std::string& alias, const std::string& field) {
    std::lock_guard<std::mutex> hold(aliasesSection_);
    customFieldAliases_[alias] = field;
}

void Lexicon::BeginTransaction() {
    if (terms_) terms_->BeginTransaction();
    if (smallTerms_) smallTerms_->BeginTransaction();
}

void Lexicon::PreCommit(const bool& cancel) {
    if (cancel) return;
    {
        std::lock_guard<std::mutex> hold(termsSection_);
        rareTerms_.PreCommit();
        frequentTerms_.PreCommit();
    }
    ForEachFieldTree([](VantuBTree::BTree& tree) { tree.PreCommit(); });
    if (terms_ && !cancel) terms_->PreCommit();
    if (smallTerms_ && !cancel) smallTerms_->PreCommit(cancel);
}

void Lexicon::Commit(const bool& cancel, const Vantu::SmartPtr<Vantu::LogEntryCallInterface>& log) {
    if (cancel) return;
    {
        std::lock_guard<std::mutex> hold(termsSection_);
        rareTerms_.Commit();
        frequentTerms_.Commit();
    }
    if (log) log->SetProgress(0.05);
    ForEachFieldTree([](VantuBTree::BTree& tree) { tree.Commit(); },
                     [&](double progress) { if (log) log->SetProgress(progress); });
    // The postings store maps its replay over the rest of the scale.
    if (terms_ && !cancel) terms_->Commit(cancel, log);
    if (smallTerms_ && !cancel) smallTerms_->Commit(cancel);
}

void Lexicon::Rollback() {
    {
        std::lock_guard<std::mutex> hold(termsSection_);
        rareTerms_.Rollback();
        frequentTerms_.Rollback();
        frequentTermCache_.clear();
    }
    ForEachFieldTree([](VantuBTree::BTree& tree) { tree.Rollback(); });
    if (terms_) terms_->Rollback();
    if (smallTerms_) smallTerms_->Rollback();
}

void Lexicon::ForceQuit() const {
    if (terms_) terms_->ForceQuit();
    if (smallTerms_) smallTerms_->ForceQuit();
}

void Lexicon::RecoveryDone() {
    if (smallTerms_) smallTerms_->RecoveryDone();
}

void Lexicon::LoadInfo(const SarIndexInfo& info) {
    std::lock_guard<std::mutex> hold(termsSection_);
    nextTermId_ = info.nextTermId;
    nextSmallTermId_ = info.nextSmallTermId;
    customFieldInfos_ = info.fields;
}

void Lexicon::SaveInfo(SarIndexInfo& info) const {
    std::lock_guard<std::mutex> hold(termsSection_);
    info.nextTermId = nextTermId_;
    info.nextSmallTermId = nextSmallTermId_;
    info.fields = customFieldInfos_;
}

uint64_t Lexicon::GetDiskSpaceUsed() const {
    uint64_t total = 0;
    {
        std::lock_guard<std::mutex> hold(termsSection_);
        total = rareTerms_.GetSizeInBytes() + frequentTerms_.GetSizeInBytes();
    }
    ForEachFieldTree([&](VantuBTree::BTree& tree) { total += tree.GetSizeInBytes(); });
    return total;
}

uint32_t Lexicon::GetNextTermId() const {
    std::lock_guard<std::mutex> hold(termsSection_);
    return nextTermId_;
}

uint32_t Lexicon::GetNextSmallTermId() const {
    std::lock_guard<std::mutex> hold(termsSection_);
    return nextSmallTermId_;
}

}  // namespace Ostrel
