#include "IndexedDocument.h"

#include <gtest/gtest.h>

#include "CustomField.h"
#include "Document.h"
#include "SourceKey.h"
#include "file/BinaryStreamMemoryBuffer.h"

namespace Ostrel {
namespace {

using Vantu::BaseBinaryStream;
using Vantu::DateTime;
using VantuFile::MemoryBuffer;

// Writes `value` with `put`, reads it back with `get` from a copy of the bytes, and checks that every
// cut of those bytes short of the whole is refused.
template <class T, class Put, class Get>
T RoundTrip(const T& value, Put put, Get get, size_t* bytes = nullptr) {
    MemoryBuffer buffer;
    BaseBinaryStream out(&buffer);
    put(out, value);
    const size_t size = buffer.Size();
    if (bytes) *bytes = size;
    for (size_t cut : {size_t(0), size / 2, size - 1}) {
        if (cut >= size) continue;
        VantuFile::StaticMemoryBuffer truncated(static_cast<const void*>(buffer.Data()), cut);
        BaseBinaryStream in(&truncated);
        T partial;
        EXPECT_THROW(get(in, partial), Vantu::BinaryStreamException) << "cut at " << cut << " of " << size;
    }
    VantuFile::StaticMemoryBuffer whole(static_cast<const void*>(buffer.Data()), size);
    BaseBinaryStream in(&whole);
    T read;
    get(in, read);
    EXPECT_TRUE(in.BaseBuffer().EndOfFile());
    return read;
}

template <class T>
T RoundTrip(const T& value, size_t* bytes = nullptr) {
    return RoundTrip(
        value, [](BaseBinaryStream& s, const T& v) { s << v; }, [](BaseBinaryStream& s, T& v) { s >> v; }, bytes);
}

IndexedDocument RoundTripDocument(const IndexedDocument& document) {
    return RoundTrip(
        document, [](BaseBinaryStream& s, const IndexedDocument& d) { d.Save(s); },
        [](BaseBinaryStream& s, IndexedDocument& d) { d.Load(s); });
}

TEST(SharedRecordsTest, SourceKeyOrderAndForm) {
    EXPECT_LT(SourceKey(1, 9, 9), SourceKey(2, 0, 0));
    EXPECT_LT(SourceKey(1, 1, 9), SourceKey(1, 2, 0));
    EXPECT_LT(SourceKey(1, 1, 1), SourceKey(1, 1, 2));
    EXPECT_TRUE(SourceKey(1, 2, SourceKey::kAllSources).AllSources());
    size_t bytes = 0;
    EXPECT_EQ(RoundTrip(SourceKey(0x0102, 0xFFFE, 0xFFFF), &bytes), SourceKey(0x0102, 0xFFFE, 0xFFFF));
    EXPECT_EQ(bytes, 6u);
}

TEST(SharedRecordsTest, CustomFieldsOfEveryFormReadBack) {
    const CustomField fields[] = {
        CustomField("author", CustomFieldValue("Zoë"), CustomField::kIndexed | CustomField::kTravels),
        CustomField("@ratio", CustomFieldValue(-2.5), CustomField::kIndexed),
        CustomField("@when", CustomFieldValue(DateTime::FromSeconds(0xFEDCBA98)), CustomField::kTravels),
        CustomField("@pages", CustomFieldValue(int32_t(-7)), 0),
        CustomField("@long", CustomFieldValue(std::string(65535, 'x')), 0),
        CustomField("docid", CustomField::kBuiltIn, CustomFieldValue("1+2+3+4"), 0),
    };
    EXPECT_EQ(fields[0].Name(), "@author");
    EXPECT_EQ(fields[0].GetType(), CustomField::kString);
    EXPECT_EQ(fields[1].GetType(), CustomField::kDouble);
    EXPECT_EQ(fields[2].GetType(), CustomField::kDate);
    EXPECT_EQ(fields[3].GetType(), CustomField::kLong);
    EXPECT_TRUE(fields[0].IsIndexed() && fields[0].Travels());
    for (const CustomField& field : fields) {
        size_t bytes = 0;
        EXPECT_EQ(RoundTrip(field, &bytes), field) << field.Name();
        EXPECT_EQ(field.StreamedSize(), bytes) << field.Name();
    }
    // Name "@pages" (2 + 6), type, flags, form, i32.
    EXPECT_EQ(fields[3].StreamedSize(), 8u + 1 + 1 + 1 + 4);
    // A 65535-byte value takes the six-byte length prefix.
    EXPECT_EQ(fields[4].StreamedSize(), 7u + 1 + 1 + 1 + 6 + 65535);
}

TEST(SharedRecordsTest, CustomFieldRefusesUnknownTypeAndForm) {
    MemoryBuffer buffer;
    BaseBinaryStream stream(&buffer);
    stream << std::string_view("@a") << uint8_t(5) << uint8_t(0) << uint8_t(0) << std::string_view("");
    stream << std::string_view("@a") << uint8_t(0) << uint8_t(0) << uint8_t(4) << uint32_t(0);
    CustomField field;
    EXPECT_THROW(stream >> field, Vantu::BinaryStreamException);
    EXPECT_THROW(stream >> field, Vantu::BinaryStreamException);
}

TEST(SharedRecordsTest, BuiltInFieldsOfTheLibrary) {
    EXPECT_EQ(CustomField::GetCustomFieldType("docid"), CustomField::kBuiltIn);
    EXPECT_EQ(CustomField::GetCustomFieldType("@docid"), CustomField::kBuiltIn);
    EXPECT_EQ(CustomField::GetCustomFieldType("@author"), CustomField::kUnknown);
    EXPECT_TRUE(CustomField::GetIsSystemField("@docid"));
    EXPECT_FALSE(CustomField::GetIsSystemField("@author"));
    std::vector<CustomField> fields{CustomField()};
    CustomField::GetAvailableCustomFieldsList(fields);
    ASSERT_EQ(fields.size(), 1u);
    EXPECT_EQ(fields[0].Name(), "@docid");
    EXPECT_EQ(fields[0].GetType(), CustomField::kBuiltIn);
}

IndexedDocument FullDocument() {
    IndexedDocument document;
    document.uri = "file:///d/\xC3\xA9t\xC3\xA9.txt";
    document.printableUri = "d:\\été.txt";
    document.clickableUri = std::string(65534, 'c');
    document.title = u"Summer \U0001F600";
    document.firstDate = DateTime::FromSeconds(1000);
    document.secondDate = DateTime::FromSeconds(0xFFFFFFFF);
    document.summarySentences = {{u"First sentence."}, {u""}, {std::u16string(65535, u'w')}};
    document.strings = {u"one", u"", u"three"};
    document.shingles = VantuAlgo::ShingleBag({u"a", u"b", u"c", u"d", u"e", u"f"});
    for (size_t i = 0; i < document.signature.size(); ++i) document.signature[i] = uint8_t(0xF0 + i);
    document.systemFields = {CustomField("docid", CustomField::kBuiltIn, CustomFieldValue("0+0+0+1"), 4)};
    document.userFields = {CustomField("@pages", CustomFieldValue(int32_t(12)), 6),
                           CustomField("@when", CustomFieldValue(DateTime::FromSeconds(5)), 4)};
    document.documentId = 0xFFFFFE;
    document.collection = 3;
    document.source = 0xFFFF;
    document.size = 123456;
    document.flags = 0x7F;
    return document;
}

TEST(SharedRecordsTest, IndexedDocumentReadsBackWithoutItsPlacement) {
    const IndexedDocument empty;
    EXPECT_EQ(RoundTripDocument(empty), empty);

    IndexedDocument placed = FullDocument();
    const IndexedDocument unplaced = placed;
    placed.physical = 1;
    placed.mirror = 2;
    placed.slice = 3;
    const IndexedDocument read = RoundTripDocument(placed);
    EXPECT_EQ(read, unplaced);
    EXPECT_EQ(read.physical, IndexedDocument::kNoId);
    EXPECT_EQ(read.clickableUri.size(), 65534u);
    EXPECT_EQ(read.summarySentences[2].text.size(), 65535u);
    EXPECT_TRUE(read.shingles.IsSimilar(unplaced.shingles, 100));
}

TEST(SharedRecordsTest, IndexedDocumentRefusesAnotherVersion) {
    MemoryBuffer buffer;
    BaseBinaryStream stream(&buffer);
    FullDocument().Save(stream);
    buffer.Data()[0] = IndexedDocument::kVersion + 1;
    IndexedDocument read;
    EXPECT_THROW(read.Load(stream), Vantu::BinaryStreamException);
}

TEST(SharedRecordsTest, IndexedDocumentFromDocument) {
    Vantu::SmartPtr<Document> document(new Document);
    document->URI(u"file:///a/b\u00E9");
    document->title = u"  \t Title  ";
    document->checkDate = DateTime::FromSeconds(50);
    document->modificationDate = DateTime::FromSeconds(40);
    document->collection = 4;
    document->source = 5;
    document->size = 99;
    document->flags = Document::kHidden | Document::kFlag0200 | Document::kSizeNotCounted;

    IndexedDocument fromUnknownDate(*document, 7);
    EXPECT_EQ(fromUnknownDate.uri, "file:///a/b\xC3\xA9");
    EXPECT_EQ(fromUnknownDate.title, u"Title");
    EXPECT_EQ(fromUnknownDate.firstDate, DateTime::FromSeconds(50));  // the check date stands in
    EXPECT_EQ(fromUnknownDate.secondDate, DateTime::FromSeconds(40));
    EXPECT_EQ(fromUnknownDate.documentId, 7u);
    EXPECT_EQ(fromUnknownDate.slice, IndexedDocument::kNoId);
    EXPECT_EQ(fromUnknownDate.flags, 0x01 | 0x04 | 0x10 | 0x20);

    document->contentDate = DateTime::FromSeconds(30);
    EXPECT_EQ(IndexedDocument(*document, 7).firstDate, DateTime::FromSeconds(30));

    EXPECT_EQ(IndexedDocument::FlagsFromDocument(Document::kFlag1000), 0);
    EXPECT_EQ(IndexedDocument::FlagsFromDocument(0xFFFF), 0x5F);
    EXPECT_EQ(IndexedDocument::FlagsFromDocument(Document::kFlag0002 | Document::kFlag0400 | Document::kFlag0040),
              0x02 | 0x08 | 0x40 | 0x20);
}

}  // namespace
}  // namespace Ostrel
