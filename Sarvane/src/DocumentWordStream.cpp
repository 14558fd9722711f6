#include "DocumentWordStream.h"

#include <algorithm>

#include "file/BinaryStreamException.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

namespace {

using Stream = Vantu::BinaryStreamT<unsigned int>;
using TermList = DocumentWordStream::TermList;

// The stream is deflated at the level at which the engine's reader is set up, so both sides name one unit form.
constexpr int kLevel = 8;

// Every list of the stream is counted by a plain u32, not by the strings' length prefix.
template <class List>
void PutCount(Stream& out, const List& list) {
    out << uint32_t(list.size());
}

// Items are read one by one, so a damaged count fails at the end of the data instead of reserving it.
template <class Item, class ReadItem>
void GetList(Stream& in, std::vector<Item>& list, ReadItem&& readItem) {
    uint32_t count;
    in >> count;
    list.clear();
    for (uint32_t i = 0; i < count; ++i) readItem(list.emplace_back());
}

void PutTerms(Stream& out, const TermList& terms) {
    PutCount(out, terms);
    for (const DocumentWordStream::Term& term : terms) {
        out << std::string_view(term.term) << term.flags;
        out << term.occurence;
    }
}

void GetTerms(Stream& in, TermList& terms) {
    GetList(in, terms, [&](DocumentWordStream::Term& term) {
        in >> term.term >> term.flags;
        in >> term.occurence;
    });
}

void PutBody(Stream& out, const DocumentWordStream& stream) {
    out << stream.leading;
    PutTerms(out, stream.terms);
    out << stream.shingles;
    out.PutExact(stream.signature.data(), stream.signature.size());
    PutCount(out, stream.sentences);
    for (const SummarySentence& sentence : stream.sentences) out << sentence;
    PutCount(out, stream.strings);
    for (const std::u16string& text : stream.strings) out << std::u16string_view(text);
    PutCount(out, stream.fields);
    for (const DocumentWordStream::Field& field : stream.fields) {
        out << field.field;
        if (!field.CarriesTerms()) continue;
        PutTerms(out, field.valueTerms);
        PutTerms(out, field.endTerms);
    }
    PutCount(out, stream.words);
    for (const auto& [word, frequency] : stream.words) out << std::u16string_view(word) << frequency;
    PutTerms(out, stream.lastTerms);
}

void GetBody(Stream& in, DocumentWordStream& stream) {
    in >> stream.leading;
    GetTerms(in, stream.terms);
    in >> stream.shingles;
    in.GetExact(stream.signature.data(), stream.signature.size());
    GetList(in, stream.sentences, [&](SummarySentence& sentence) { in >> sentence; });
    GetList(in, stream.strings, [&](std::u16string& text) { in >> text; });
    GetList(in, stream.fields, [&](DocumentWordStream::Field& field) {
        in >> field.field;
        if (!field.CarriesTerms()) return;
        GetTerms(in, field.valueTerms);
        GetTerms(in, field.endTerms);
    });
    GetList(in, stream.words, [&](DocumentWordStream::WordCount& word) { in >> word.first >> word.second; });
    GetTerms(in, stream.lastTerms);
}

}  // namespace

bool DocumentWordStream::Term::operator==(const Term& other) const {
    return term == other.term && flags == other.flags &&
           std::ranges::equal(occurence.positions, other.occurence.positions);
}

void DocumentWordStream::Write(VantuFile::MemoryBuffer& out) const {
    out.Clear();
    VantuCompression::ZLib zlib(1, kLevel, 15);
    VantuCompression::OCompressedBufferT<unsigned int> deflater(out, &zlib);
    Stream stream(deflater);
    PutBody(stream, *this);
    deflater.Finish();
}

DocumentWordStream DocumentWordStream::Read(const VantuFile::MemoryBuffer& in) {
    VantuFile::StaticMemoryBuffer source(static_cast<const void*>(in.Data()), in.DataSize());
    VantuCompression::ZLib zlib(1, kLevel, 15);
    VantuCompression::ICompressedBufferT<unsigned int> inflater(source, &zlib);
    Stream stream(inflater);
    DocumentWordStream read;
    GetBody(stream, read);
    if (!inflater.EndOfFile())
        Vantu::ThrowStream<Vantu::BinaryStreamException>("Document word stream: bytes left behind the last term list");
    return read;
}

}  // namespace Ostrel
