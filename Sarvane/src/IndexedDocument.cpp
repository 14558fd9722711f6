#include "IndexedDocument.h"

#include <tuple>

#include "Document.h"
#include "core/Text.h"

namespace Ostrel {
namespace {

template <class T>
void PutList(Vantu::BaseBinaryStream& stream, const std::vector<T>& items) {
    stream.PutLength(items.size());
    for (const T& item : items) stream << item;
}

// Items are read one by one, so a corrupt count fails at the end of the data without reserving it.
template <class T>
void GetList(Vantu::BaseBinaryStream& stream, std::vector<T>& items) {
    const size_t count = stream.GetLength();
    items.clear();
    for (size_t i = 0; i < count; ++i) {
        T item;
        stream >> item;
        items.push_back(std::move(item));
    }
}

}  // namespace

IndexedDocument::IndexedDocument(const Document& document, uint32_t documentId)
    : uri(document.URIAsString()),
      printableUri(document.PrintableURIAsString()),
      clickableUri(document.ClickableURIAsString()),
      title(document.title),
      firstDate(document.contentDate == Vantu::DateTime::minimum ? document.checkDate : document.contentDate),
      secondDate(document.modificationDate),
      documentId(documentId),
      collection(document.collection),
      source(document.source),
      size(document.size),
      flags(FlagsFromDocument(document.flags)) {
    Vantu::StripLeadingBlanks(title);
    Vantu::StripTrailingBlanks(title);
}

uint8_t IndexedDocument::FlagsFromDocument(uint16_t documentFlags) {
    static constexpr std::pair<uint16_t, uint8_t> kMap[] = {
        {Document::kHidden, kHidden},   {Document::kFlag0002, kFlag02},        {Document::kFlag0200, kFlag04},
        {Document::kFlag0400, kFlag08}, {Document::kSizeNotCounted, kSizeNotCounted}, {Document::kFlag0040, kFlag40},
    };
    uint8_t result = (documentFlags & Document::kFlag1000) ? 0 : kFlag20;
    for (const auto& [from, to] : kMap) {
        if (documentFlags & from) result |= to;
    }
    return result;
}

void IndexedDocument::Save(Vantu::BaseBinaryStream& stream) const {
    stream << kVersion << std::string_view(uri) << std::string_view(printableUri)
           << std::string_view(clickableUri) << std::u16string_view(title) << firstDate.Seconds()
           << secondDate.Seconds();
    PutList(stream, summarySentences);
    PutList(stream, strings);
    stream << shingles;
    stream.PutExact(signature.data(), signature.size());
    PutList(stream, systemFields);
    PutList(stream, userFields);
    stream << documentId << collection << source << size << flags;
}

void IndexedDocument::Load(Vantu::BaseBinaryStream& stream) {
    IndexedDocument read;
    uint8_t version;
    stream >> version;
    if (version != kVersion) {
        Vantu::ThrowStream<Vantu::BinaryStreamException>("IndexedDocument: unknown version " +
                                                         std::to_string(version));
    }
    uint32_t first, second;
    stream >> read.uri >> read.printableUri >> read.clickableUri >> read.title >> first >> second;
    read.firstDate = Vantu::DateTime::FromSeconds(first);
    read.secondDate = Vantu::DateTime::FromSeconds(second);
    GetList(stream, read.summarySentences);
    GetList(stream, read.strings);
    stream >> read.shingles;
    stream.GetExact(read.signature.data(), read.signature.size());
    GetList(stream, read.systemFields);
    GetList(stream, read.userFields);
    stream >> read.documentId >> read.collection >> read.source >> read.size >> read.flags;
    *this = read;
}

bool IndexedDocument::operator==(const IndexedDocument& o) const {
    auto fields = [](const IndexedDocument& d) {
        return std::tie(d.uri, d.printableUri, d.clickableUri, d.title, d.firstDate, d.secondDate,
                        d.summarySentences, d.strings, d.shingles, d.signature, d.systemFields, d.userFields,
                        d.documentId, d.collection, d.source, d.physical, d.mirror, d.slice, d.size, d.flags);
    };
    return fields(*this) == fields(o);
}

}  // namespace Ostrel
