#include "SarSliceStores.h"

namespace Ostrel {

SarSliceStores::SarSliceStores(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : documents(new FileIndexedDocuments(config, readOnly)), documentIdMap(new FileDocIdIndexId(config, readOnly)) {}

SarSliceStores::~SarSliceStores() {
    documentIdMap = nullptr;
    documents = nullptr;
}

void SarSliceStores::RecoveryDone() {
    documentIdMap->RecoveryDone();
    documents->LoadWeights();
}

uint64_t SarSliceStores::GetDiskSpaceUsed() const {
    return documents->GetDiskSpaceUsed() + documentIdMap->GetDiskSpaceUsed();
}

}  // namespace Ostrel
