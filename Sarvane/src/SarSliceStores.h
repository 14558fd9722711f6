// The stores of one started slice: opened together in the order they depend on one another, released
// together in the order a stop needs. Made and released under the slice's files lock held exclusively.
#pragma once

#include <memory>

#include "FileDocIdIndexId.h"
#include "FileCollections.h"
#include "FileIndexedDocuments.h"
#include "FileIndexedTerms.h"
#include "FileSmallTerms.h"
#include "Lexicon.h"
#include "SarIndexInfo.h"
#include "SarvaneInternalConfig.h"
#include "core/RefCounted.h"

namespace Ostrel {

struct SarSliceStores {
    // Opens, in this order: documents, terms, the document-id map, collections, small terms, the lexicon,
    // ranking, the word corrector, security. Each store takes its place in that order as it comes.
    SarSliceStores(const Vantu::SmartPtr<SarvaneInternalConfig>& config, bool readOnly);
    // Releases in the stop order: ranking, lexicon, the document-id map, collections, small terms, security,
    // terms, documents, the word corrector.
    ~SarSliceStores();
    SarSliceStores(const SarSliceStores&) = delete;
    SarSliceStores& operator=(const SarSliceStores&) = delete;

    // The stores of a stopped slice, with the counters of its "Index.info" and their recovery ended: for tools,
    // tests and benches that look into (or, writable, build) a slice no engine runs on.
    static std::unique_ptr<SarSliceStores> OpenStopped(const Vantu::SmartPtr<SarvaneInternalConfig>& config,
                                                       bool readOnly = true);

    // The stores' end of a start, once the counters of "Index.info" are loaded.
    void RecoveryDone();
    uint64_t GetDiskSpaceUsed() const;

    // Declared in the open order.
    Vantu::SmartPtr<FileIndexedDocuments> documents;
    Vantu::SmartPtr<FileIndexedTerms> terms;
    Vantu::SmartPtr<FileDocIdIndexId> documentIdMap;
    Vantu::SmartPtr<FileCollections> collections;
    Vantu::SmartPtr<FileSmallTerms> smallTerms;
    Vantu::SmartPtr<Lexicon> lexicon;
};

}  // namespace Ostrel
