#include "SarIndexInfo.h"

#include "SarException.h"
#include "file/BinaryStream.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/CFileT.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

namespace {

using File = VantuFile::CFileT<unsigned int>;
using Stream = Vantu::BinaryStreamT<unsigned int>;

std::string InfoPath(const std::string& directory, const char* suffix = "") {
    return directory + "/" + SarIndexInfo::kFileName + suffix;
}

void WriteBody(Stream& out, const SarIndexInfo& info, bool withWordTotal) {
    out << info.documentsWithShingles;
    info.WriteDocumentItems(out);
    out << info.nextTermId << info.nextSmallTermId << uint32_t(info.fields.size());
    for (const SarFieldInfo& f : info.fields) out << std::string_view(f.name) << f.type << f.highestDocumentId;
    if (withWordTotal) out << info.wordTotal;
}

void ReadBody(Stream& in, SarIndexInfo& info, bool withWordTotal) {
    uint32_t count;
    in >> info.documentsWithShingles >> count;
    info.collections.assign(count, {});
    for (SarCollectionInfo& c : info.collections)
        in >> c.id >> c.documentBytes >> c.removedDocumentBytes >> c.documents >> c.removedDocuments;
    in >> info.deletedBitCount;
    info.deletedBits.assign((uint64_t(info.deletedBitCount) + 7) / 8, 0);
    in.GetExact(info.deletedBits.data(), info.deletedBits.size());
    in >> info.nextTermId >> info.nextSmallTermId >> count;
    info.fields.assign(count, {});
    for (SarFieldInfo& f : info.fields) in >> f.name >> f.type >> f.highestDocumentId;
    // A compacted index has no total behind the fields: that is no error.
    uint64_t total;
    if (withWordTotal && in.Get(&total, sizeof total) == sizeof total) info.wordTotal = total;
}

void ReadVersion(VantuFile::ICFileBufferT<unsigned int>& input) {
    uint32_t version;
    Stream(input) >> version;
    if (version != SarIndexInfo::kVersion)
        throw SarInvalidIndexVersionException(SAR_MESSAGE(16, version, SarIndexInfo::kVersion));
}

}  // namespace

std::string SarIndexInfo::LoadPath(const std::string& directory) {
    if (VantuFile::FileExists(InfoPath(directory))) return InfoPath(directory);
    if (VantuFile::FileExists(InfoPath(directory, ".new"))) return InfoPath(directory, ".new");
    return {};
}

void SarIndexInfo::CheckVersion(const std::string& path) {
    File file(path);
    file.Open(VantuFile::CFileBase::kModeRead);
    VantuFile::ICFileBufferT<unsigned int> input(file);
    ReadVersion(input);
}

void SarIndexInfo::Load(const std::string& path, bool withWordTotal) {
    File file(path);
    file.Open(VantuFile::CFileBase::kModeRead);
    VantuFile::ICFileBufferT<unsigned int> input(file, VantuCompression::kCompressedWindow);
    ReadVersion(input);
    VantuCompression::ZLib zlib(1, 6, 15);
    VantuCompression::ICompressedBufferT<unsigned int> inflater(input, &zlib);
    Stream body(inflater);
    ReadBody(body, *this, withWordTotal);
}

void SarIndexInfo::Save(const std::string& directory, bool direct, bool withWordTotal) const {
    const std::string tmp = InfoPath(directory, ".tmp");
    {
        File file(tmp, 0, true);
        file.Open(VantuFile::CFileBase::kModeCreate);
        VantuFile::OCFileBufferT<unsigned int> output(file);
        Stream(output) << kVersion;
        VantuCompression::ZLib zlib(1, 6, 15);
        VantuCompression::OCompressedBufferT<unsigned int> compressed(output, &zlib);
        Stream body(compressed);
        WriteBody(body, *this, withWordTotal);
        compressed.Finish();
        output.Flush();
        file.Close();
    }
    VantuFile::CrashPoint("SarIndexInfo: tmp written");
    // rename() replaces the target atomically, so the old file is never missing.
    VantuFile::RenameDurably(tmp, InfoPath(directory, direct ? "" : ".new"));
}

void SarIndexInfo::WriteDocumentItems(Vantu::BaseBinaryStream& out) const {
    out << uint32_t(collections.size());
    for (const SarCollectionInfo& c : collections)
        out << c.id << c.documentBytes << c.removedDocumentBytes << c.documents << c.removedDocuments;
    out << deletedBitCount;
    out.Put(deletedBits.data(), deletedBits.size());
}

void SarIndexInfo::Commit(const std::string& directory) {
    const std::string next = InfoPath(directory, ".new");
    if (VantuFile::FileExists(next)) VantuFile::RenameDurably(next, InfoPath(directory));
}

}  // namespace Ostrel
