#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "DocumentWordStream.h"
#include "file/BinaryStreamException.h"

using namespace Ostrel;

namespace {

using Term = DocumentWordStream::Term;

Term MakeTerm(std::string text, uint16_t flags, std::initializer_list<unsigned int> positions) {
    return Term{std::move(text), flags, VantuLanguage::WordsExtractor::Occurence(positions)};
}

DocumentWordStream Sample() {
    DocumentWordStream stream;
    stream.leading = 0xA1B2C3D4;
    stream.terms = {MakeTerm("river", 0x0001, {0, 4, 70000}), MakeTerm("\xC3\xA9t\xC3\xA9", 0x3020, {2}),
                    MakeTerm("empty", 0, {})};
    stream.shingles = VantuAlgo::ShingleBag({u"the", u"river", u"runs", u"north", u"past", u"the", u"mill"});
    for (size_t i = 0; i < stream.signature.size(); ++i) stream.signature[i] = uint8_t(0xF0 + i);
    stream.sentences = {{u"The river runs north."}, {u"Past the mill \u00E9t\u00E9."}};
    stream.strings = {u"first", u"", std::u16string(70000, u'x')};
    DocumentWordStream::Field text{CustomField("@author", CustomFieldValue(std::string("Ann Lee")), 0x06), {}, {}};
    text.valueTerms = {MakeTerm("ann", 0, {0}), MakeTerm("lee", 0, {1})};
    text.endTerms = {MakeTerm("!", 0, {2})};
    const DocumentWordStream::Field pages{CustomField("@pages", CustomFieldValue(int32_t(12)), 0x02), {}, {}};
    const DocumentWordStream::Field shown{CustomField("@note", CustomFieldValue(std::string("x")), 0x04), {}, {}};
    stream.fields = {text, pages, shown};
    stream.words = {{u"river", 2}, {u"\u00E9t\u00E9", 300}};
    stream.lastTerms = {MakeTerm("north", 0x0001, {3})};
    return stream;
}

std::vector<uint8_t> Inflate(const VantuFile::MemoryBuffer& unit) {
    std::vector<uint8_t> out(1 << 20);
    uLongf size = uLongf(out.size());
    EXPECT_EQ(Z_OK, uncompress(out.data(), &size, unit.Data(), uLong(unit.DataSize())));
    out.resize(size);
    return out;
}

template <class V>
V At(const std::vector<uint8_t>& bytes, size_t offset) {
    V value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

}  // namespace

// Every item comes back, including a text field's two term lists and fields that carry none; a field that
// does not carry lists has none written even when the value holds some.
TEST(DocumentWordStream, RoundTripOfEveryItem) {
    const DocumentWordStream stream = Sample();
    VantuFile::MemoryBuffer memory;
    stream.Write(memory);
    EXPECT_EQ(stream, DocumentWordStream::Read(memory));

    DocumentWordStream stray = stream;
    stray.fields[1].valueTerms = {MakeTerm("12", 0, {0})};
    stray.Write(memory);
    const DocumentWordStream back = DocumentWordStream::Read(memory);
    EXPECT_TRUE(back.fields[1].valueTerms.empty());
    EXPECT_EQ(stream, back);

    // Writing again replaces what the buffer held; an all-empty stream is a whole unit too.
    DocumentWordStream().Write(memory);
    EXPECT_EQ(DocumentWordStream(), DocumentWordStream::Read(memory));
}

// The decompressed unit opens with the leading u32, then the first term list's count and its first entry.
TEST(DocumentWordStream, UnitStartsWithLeadingWordAndFirstTermList) {
    VantuFile::MemoryBuffer memory;
    Sample().Write(memory);
    ASSERT_GE(memory.DataSize(), 2u);
    EXPECT_EQ(0x78, memory.Data()[0]);
    EXPECT_EQ(0xDA, memory.Data()[1]);  // deflated at level 8

    const std::vector<uint8_t> bytes = Inflate(memory);
    EXPECT_EQ(0xA1B2C3D4u, At<uint32_t>(bytes, 0));
    EXPECT_EQ(3u, At<uint32_t>(bytes, 4));
    EXPECT_EQ(5u, At<uint16_t>(bytes, 8));
    EXPECT_EQ(0, std::memcmp(bytes.data() + 10, "river", 5));
    EXPECT_EQ(0x0001u, At<uint16_t>(bytes, 15));
    EXPECT_EQ(3u, At<uint32_t>(bytes, 17));
    EXPECT_EQ(70000u, At<uint32_t>(bytes, 29));
}

// A unit that holds more than the items is refused: the layouts of the two sides differ.
TEST(DocumentWordStream, UnitWithBytesLeftOverIsRefused) {
    VantuFile::MemoryBuffer memory;
    Sample().Write(memory);
    std::vector<uint8_t> bytes = Inflate(memory);
    bytes.push_back(0);
    std::vector<uint8_t> packed(compressBound(uLong(bytes.size())));
    uLongf size = uLongf(packed.size());
    ASSERT_EQ(Z_OK, compress(packed.data(), &size, bytes.data(), uLong(bytes.size())));
    VantuFile::MemoryBuffer padded;
    padded.Put(packed.data(), size);
    EXPECT_THROW(DocumentWordStream::Read(padded), Vantu::BinaryStreamException);
}
