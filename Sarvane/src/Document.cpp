#include "Document.h"

#include <filesystem>

#include "core/Text.h"

namespace Ostrel {
namespace {

// A copy of a memory stream's bytes and positions. Sizes and positions are reads, though the buffer
// API does not mark them const.
void CopyStream(const VantuFile::MemoryBuffer& from, VantuFile::MemoryBuffer& to) {
    auto& source = const_cast<VantuFile::MemoryBuffer&>(from);
    to.PutExact(source.Data(), source.Size());
    to.SeekP(source.TellP());
    to.SeekG(source.TellG());
}

}  // namespace

void ConvertUriInString(const std::u16string& uri, std::string& out) { out = Vantu::ToUtf8(uri); }

void ConvertStringInURI(const std::string& uri, std::u16string& out) { out = Vantu::FromUtf8(uri); }

Document::Document(const Document& other)
    : Vantu::SPRefCounter(other),
      name(other.name),
      title(other.title),
      extendedText(other.extendedText),
      checkDate(other.checkDate),
      contentDate(other.contentDate),
      modificationDate(other.modificationDate),
      collection(other.collection),
      source(other.source),
      physical(other.physical),
      size(other.size),
      skipCode(other.skipCode),
      flags(other.flags),
      documentSize(other.documentSize),
      status(other.status),
      extra(other.extra),
      securityAccess(other.securityAccess),
      links(other.links),
      redirect(other.redirect),
      uri_(other.URI()) {
    CopyStream(other.wordStream, wordStream);
    CopyStream(other.cachedCopy, cachedCopy);
}

std::string Document::URIAsString() const {
    std::string narrow;
    ConvertUriInString(URI(), narrow);
    return narrow;
}

uint32_t Document::StreamedSize() const {
    auto& words = const_cast<VantuFile::MemoryBuffer&>(wordStream);
    auto& copy = const_cast<VantuFile::MemoryBuffer&>(cachedCopy);
    return words.Size() + copy.Size();
}

void Document::Clear() {
    wordStream.ClearMemory();
    cachedCopy.ClearMemory();
}

std::u16string Document::GetTemporaryPath() {
    return Vantu::FromUtf8(std::filesystem::temp_directory_path().string());
}

}  // namespace Ostrel
