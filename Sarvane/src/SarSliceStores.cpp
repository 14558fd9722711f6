#include "SarSliceStores.h"

namespace Ostrel {

SarSliceStores::SarSliceStores(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly)
    : documentIdMap(new FileDocIdIndexId(config, readOnly)) {}

SarSliceStores::~SarSliceStores() { documentIdMap = nullptr; }

void SarSliceStores::RecoveryDone() { documentIdMap->RecoveryDone(); }

uint64_t SarSliceStores::GetDiskSpaceUsed() const { return documentIdMap->GetDiskSpaceUsed(); }

}  // namespace Ostrel
