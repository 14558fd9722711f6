#include "SarSliceStores.h"

#include "SarStoreFiles.h"

namespace Ostrel {

SarSliceStores::SarSliceStores(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : documents(new FileIndexedDocuments(config, readOnly)),
      terms(new FileIndexedTerms(config, readOnly)),
      documentIdMap(new FileDocIdIndexId(config, readOnly)),
      collections(new FileCollections(config, readOnly)),
      smallTerms(new FileSmallTerms(config, readOnly)),
      lexicon(new Lexicon(config, terms, smallTerms, readOnly)) {}

SarSliceStores::~SarSliceStores() {
    lexicon = nullptr;
    documentIdMap = nullptr;
    collections = nullptr;
    smallTerms = nullptr;
    terms = nullptr;
    documents = nullptr;
}

std::unique_ptr<SarSliceStores> SarSliceStores::OpenStopped(const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                                                            bool readOnly) {
    auto stores = std::make_unique<SarSliceStores>(config, readOnly);
    std::string directory;
    {
        SarvaneConfigReadLock<SarvaneInternalConfig> hold(*config);
        directory = config->GetIndexFilesPathAsString();
    }
    SarIndexInfo info;
    if (const std::string path = SarIndexInfo::LoadPath(directory); !path.empty()) info.Load(path, false);
    stores->documents->LoadInfo(info);
    stores->lexicon->LoadInfo(info);
    stores->RecoveryDone();
    return stores;
}

void SarSliceStores::RecoveryDone() {
    documentIdMap->RecoveryDone();
    documents->LoadWeights();
    collections->RecoveryDone();
    lexicon->RecoveryDone();
}

uint64_t SarSliceStores::GetDiskSpaceUsed() const {
    return documents->GetDiskSpaceUsed() + terms->GetDiskSpaceUsed() + documentIdMap->GetDiskSpaceUsed() +
           collections->GetDiskSpaceUsed() + smallTerms->GetDiskSpaceUsed() + lexicon->GetDiskSpaceUsed();
}

}  // namespace Ostrel
