#include "Lexicon.h"

#include "SarStoreFiles.h"

namespace Ostrel {

namespace {

constexpr uint32_t kPageSize = 0x10000;

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
