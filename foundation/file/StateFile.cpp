#include "file/StateFile.h"

#include "file/CFileT.h"
#include "file/FaultInjector.h"
#include "file/FileSystem.h"

namespace VantuFile {

void StateFile::Replace(const std::string& path, const std::string& bytes) {
    const std::string tmp = path + ".tmp", next = path + ".new";
    {
        CFileT<uint32_t> file(tmp);
        file.Open(CFileBase::kModeCreate);
        file.Write(bytes.data(), 1, bytes.size());
        // No sync here: RenameDurably syncs the file before its name can point at it.
        file.Close();
    }
    CrashPoint("StateFile: tmp written");
    // rename() replaces an older "path.new" and "path" atomically, so neither is deleted first.
    RenameDurably(tmp, next);
    CrashPoint("StateFile: new in place");
    RenameDurably(next, path);
}

void StateFile::Recover(const std::string& path) {
    const std::string next = path + ".new";
    if (FileExists(next)) RenameDurably(next, path);
}

bool StateFile::Read(const std::string& path, std::string& bytes) {
    if (!FileExists(path)) return false;
    CFileT<uint32_t> file(path);
    file.Open(CFileBase::kModeRead);
    bytes.resize(file.Size());
    file.Read(bytes.data(), 1, bytes.size(), true);
    return true;
}

}  // namespace VantuFile
