#include "SarCheckDump.h"

#include <cstdio>
#include <functional>
#include <sstream>

#include "FileCollections.h"
#include "FileSmallTerms.h"
#include "Lexicon.h"
#include "SarCheckFiles.h"
#include "core/Text.h"

namespace Ostrel {

namespace {

constexpr const char* kTermTrees[] = {Lexicon::kRareTermsFileName, Lexicon::kFrequentTermsFileName,
                                      Lexicon::kStringFieldsFileName};

// Every term of the dictionary trees with its id and tree, in tree and key order.
void ForEachTerm(const std::string& directory,
                 const std::function<void(const std::string& term, uint32_t id, const char* tree)>& visit) {
    for (const char* tree : kTermTrees)
        SarWalkTree(directory, tree, false, SarStringKeyBefore, [&](const std::string& key, const std::string& value) {
            visit(SarStringKey(key), SarU32Value(value), tree);
        });
}

template <class List>
std::string JsonList(const List& values) {
    std::string text = "[";
    for (const auto& value : values) text += (text.size() > 1 ? "," : "") + std::to_string(value);
    return text + "]";
}

std::string JsonList(const VantuAlgo::BitVector& vector) {
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < vector.size(); ++i)
        if (vector[i]) ids.push_back(i);
    return JsonList(ids);
}

uint32_t TermDocuments(const SarTermFiles& terms, uint32_t id) {
    return id < terms.RecordCount() ? terms.ReadRecord(id).NumberOfDocuments() : 0;
}

}  // namespace

std::string SarJsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

void SarCheckDump::Terms(std::ostream& out) const {
    const SarTermFiles terms(directory_);
    const SarListFiles small(directory_, FileSmallTerms::kFileName);
    ForEachTerm(directory_, [&](const std::string& term, uint32_t id, const char* tree) {
        uint32_t documents = 0;
        if (id < Lexicon::kFirstSmallTermId) documents = TermDocuments(terms, id);
        else if (id - Lexicon::kFirstSmallTermId < small.RecordCount())
            documents = small.ReadList(id - Lexicon::kFirstSmallTermId, small.ReadRecord(id - Lexicon::kFirstSmallTermId)).count();
        out << "{\"term\":" << SarJsonString(term) << ",\"id\":" << id << ",\"tree\":" << SarJsonString(tree)
            << ",\"documents\":" << documents << "}\n";
    });
}

void SarCheckDump::Term(const std::string& term, std::ostream& out) const {
    uint32_t found = 0;
    bool known = false;
    ForEachTerm(directory_, [&](const std::string& name, uint32_t id, const char*) {
        if (name == term) found = id, known = true;
    });
    if (!known) return;
    const std::string head = "{\"term\":" + SarJsonString(term) + ",\"id\":" + std::to_string(found);
    if (found >= Lexicon::kFirstSmallTermId) {
        const SarListFiles small(directory_, FileSmallTerms::kFileName);
        const uint32_t list = found - Lexicon::kFirstSmallTermId;
        if (list >= small.RecordCount()) return;
        const VantuAlgo::BitVector documents = small.ReadList(list, small.ReadRecord(list));
        for (uint32_t d = 0; d < documents.size(); ++d)
            if (documents[d]) out << head << ",\"document\":" << d << "}\n";
        return;
    }
    const SarTermFiles terms(directory_);
    if (found >= terms.RecordCount()) return;
    for (const SarTermPosting& posting : terms.ReadPostings(found, terms.ReadRecord(found)))
        out << head << ",\"document\":" << posting.posting.DocumentId() << ",\"flags\":" << posting.posting.TermFlags()
            << ",\"positions\":" << JsonList(terms.ReadPositions(found, posting)) << "}\n";
}

void SarCheckDump::Document(uint32_t documentId, std::ostream& out) const {
    const SarDocumentFiles files(directory_);
    if (documentId >= files.RecordCount()) return;
    const FileIndexedDocuments::IndexFileStruct record = files.ReadRecord(documentId);
    out << "{\"document\":" << documentId;
    if (record.Blank()) {
        out << ",\"blank\":true}\n";
        return;
    }
    IndexedDocument document;
    std::map<std::u16string, uint32_t> words;
    files.ReadBlock(documentId, record, document, words);
    out << ",\"offset\":" << record.offset << ",\"size\":" << record.size << ",\"rank\":" << record.weight.RankValue()
        << ",\"uri\":" << SarJsonString(document.uri) << ",\"title\":" << SarJsonString(Vantu::ToUtf8(document.title))
        << ",\"collection\":" << document.collection << ",\"source\":" << document.source
        << ",\"length\":" << document.size << ",\"flags\":" << unsigned(document.flags) << ",\"fields\":[";
    bool first = true;
    for (const auto* fields : {&document.systemFields, &document.userFields})
        for (const CustomField& field : *fields) {
            out << (first ? "" : ",") << SarJsonString(field.Name());
            first = false;
        }
    out << "],\"words\":{";
    first = true;
    for (const auto& [word, count] : words) {
        out << (first ? "" : ",") << SarJsonString(Vantu::ToUtf8(word)) << ":" << count;
        first = false;
    }
    out << "}}\n";
}

void SarCheckDump::Lists(std::ostream& out) const {
    for (const char* store : {FileCollections::kFileName, FileSmallTerms::kFileName}) {
        const SarListFiles files(directory_, store);
        for (uint32_t list = 0; list < files.RecordCount(); ++list) {
            const FileDocIDList::IndexFileStruct record = files.ReadRecord(list);
            if (!record.HasBlock()) continue;
            out << "{\"store\":" << SarJsonString(store) << ",\"list\":" << list
                << ",\"documents\":" << JsonList(files.ReadList(list, record)) << "}\n";
        }
    }
}

}  // namespace Ostrel
