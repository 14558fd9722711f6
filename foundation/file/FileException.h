// The failures of the file layer: each carries a message of the domain "VANTUFILE" naming the file.
// Exceptions are values: copy, clone and rethrow them on any thread.
#pragma once

#include <cerrno>
#include <string>

#include "core/Exception.h"

namespace VantuFile {

inline constexpr const char* kFileMessageDomain = "VANTUFILE";

// What was being done when the system refused: the message id of a FileException raised by Throw.
enum Action {
    kActionOpenRead = 0,
    kActionOpenWrite = 1,
    kActionDelete = 3,
    kActionRename = 4,
    kActionSeek = 5,
    kActionWrite = 6,
    kActionRead = 7,
    kActionAttributes = 8,
};

// Message ids beyond the actions.
enum FileMessage {
    kMessageCorrupt = 100,
    kMessageSeekOutOfRange = 101,
    kMessageInvalidBlock = 102,
};

VANTU_DECLARE_EXCEPTION(FileException, Vantu::Exception);
VANTU_DECLARE_EXCEPTION(SeekOutOfRangeException, FileException);
VANTU_DECLARE_EXCEPTION(EmptyListInvalidBlock, FileException);
VANTU_DECLARE_EXCEPTION(FileNotEnoughFreeSpace, FileException);

// Raises a FileException for `action` on `path`, with the text of the system error `error`.
[[noreturn]] void ThrowFileError(Action action, const std::string& path, int error = errno);

// Raises a FileException saying that the content of `path` can't be right, and why.
[[noreturn]] void ThrowCorruptFile(const std::string& path, const std::string& why);

// The messages of the domain, registered on first use; exposed for the exception classes above.
void RegisterFileMessages();

}  // namespace VantuFile
