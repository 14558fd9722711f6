#include "file/FileException.h"

#include <cstring>

#include "core/Messages.h"

namespace VantuFile {

void RegisterFileMessages() {
    // Registered at each use: the message table may have been freed and loaded again since.
    static const struct {
        int id;
        const char16_t* text;
    } kTexts[] = {
        {kActionOpenRead, u"Cannot open the file %1 for reading: %2 (error %3)."},
        {kActionOpenWrite, u"Cannot open the file %1 for writing: %2 (error %3)."},
        {kActionDelete, u"Cannot delete the file %1: %2 (error %3)."},
        {kActionRename, u"Cannot rename the file %1: %2 (error %3)."},
        {kActionSeek, u"Cannot move in or resize the file %1: %2 (error %3)."},
        {kActionWrite, u"Cannot write to the file %1: %2 (error %3)."},
        {kActionRead, u"Cannot read from the file %1: %2 (error %3)."},
        {kActionAttributes, u"Cannot read the attributes of the file %1: %2 (error %3)."},
        {kMessageCorrupt, u"The file %1 is damaged: %2."},
        {kMessageSeekOutOfRange, u"The position %2 is out of range in the file %1."},
        {kMessageInvalidBlock, u"The free list %1 holds no free range of %2 bytes at %3."},
    };
    for (const auto& t : kTexts) VantuMessages::Register(kFileMessageDomain, t.id, t.text);
}

void ThrowFileError(Action action, const std::string& path, int error) {
    RegisterFileMessages();
    char buffer[256];
    const char* text = strerror_r(error, buffer, sizeof buffer);
    throw FileException(VANTU_MESSAGE(kFileMessageDomain, action, path, std::string(text), error));
}

void ThrowCorruptFile(const std::string& path, const std::string& why) {
    RegisterFileMessages();
    throw FileException(VANTU_MESSAGE(kFileMessageDomain, kMessageCorrupt, path, why));
}

}  // namespace VantuFile
