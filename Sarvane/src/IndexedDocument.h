// The stored summary of one document in a slice: URIs, title, dates, summary sentences, fingerprint,
// the fields that travel with it, and its ids. Reference counted; built and loaded by one thread, then
// read-only and shared between threads.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "CustomField.h"
#include "SummarySentence.h"
#include "core/DateTime.h"
#include "core/RefCounted.h"
#include "file/BinaryStream.h"
#include "store/ShingleBag.h"

namespace Ostrel {

class Document;

class IndexedDocument : public Vantu::SPRefCounter {
public:
    // Bits of flags, each from a flag of the Document (0x20 from one inverted).
    enum Flag : uint8_t {
        kHidden = 0x01,
        kFlag02 = 0x02,
        kFlag04 = 0x04,
        kFlag08 = 0x08,
        kSizeNotCounted = 0x10,
        kFlag20 = 0x20,
        kFlag40 = 0x40,
    };
    // In physical, mirror and slice while the record has not been placed in a slice.
    static constexpr uint16_t kNoId = 0xFFFF;
    // The version byte that opens the stored form.
    static constexpr uint8_t kVersion = 1;
    static constexpr size_t kSignatureSize = 15;

    IndexedDocument() = default;
    // The part that comes from the Document's description; what its word stream holds is added by the
    // writer. The first date is the content date, or the check date when that is not known.
    IndexedDocument(const Document& document, uint32_t documentId);

    static uint8_t FlagsFromDocument(uint16_t documentFlags);

    // The stored form, ids of the slice's placement excepted: Load sets them to kNoId.
    void Save(Vantu::BaseBinaryStream& stream) const;
    void Load(Vantu::BaseBinaryStream& stream);

    bool operator==(const IndexedDocument& o) const;

    std::string uri;
    std::string printableUri;
    std::string clickableUri;
    std::u16string title;
    Vantu::DateTime firstDate;
    Vantu::DateTime secondDate;
    std::vector<SummarySentence> summarySentences;
    std::vector<std::u16string> strings;
    VantuAlgo::ShingleBag shingles;
    std::array<uint8_t, kSignatureSize> signature{};  // copied as it came from the analysed stream
    std::vector<CustomField> systemFields;
    std::vector<CustomField> userFields;
    uint32_t documentId = 0;
    uint16_t collection = 0;
    uint16_t source = 0;
    uint16_t physical = kNoId;
    uint16_t mirror = kNoId;
    uint16_t slice = kNoId;
    uint32_t size = 0;
    uint8_t flags = 0;
};

}  // namespace Ostrel
