// What the URI store knows of one document, as GetDocumentInformation reports it. A plain value: copy it
// freely, share it read-only between threads.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "SarvaneContainerAccess.h"
#include "core/DateTime.h"

namespace Ostrel {

struct DocumentInformation {
    Vantu::DateTime checkDate;
    Vantu::DateTime modificationDate;
    bool sizeNotCounted = false;  // the document's flag 0x0800
    bool flag2000 = false;        // the document's flag 0x2000
    uint16_t status = 0;
    uint32_t extra = 0;
    // Filled only when the caller asks for security data.
    std::set<SarcIdentity> allowed;
    std::set<SarcIdentity> denied;
    uint32_t documentSize = 0;
    std::string extendedText;
    std::u16string text;  // the URI when the stored text is empty
    std::u16string name;

    bool operator==(const DocumentInformation&) const = default;
};

}  // namespace Ostrel
