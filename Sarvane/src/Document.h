// A document as the application hands it in: identity, dates, flags, access, links and two byte streams
// (the analysed words and the cached copy). Reference counted; one thread at a time per object, and a
// copy shares nothing with its original, so each mirror may work on its own copy in its own thread.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "SarvaneContainerAccess.h"
#include "SourceKey.h"
#include "core/DateTime.h"
#include "core/RefCounted.h"
#include "file/BinaryStreamMemoryBuffer.h"

namespace Ostrel {

// The narrow (UTF-8) form of a URI, which the stores key on and the slice hash is computed over, and back.
void ConvertUriInString(const std::u16string& uri, std::string& out);
void ConvertStringInURI(const std::string& uri, std::u16string& out);

class Document : public Vantu::SPRefCounter {
public:
    // Flags that the engine acts on; the others belong to the analysing side.
    enum Flag : uint16_t {
        kHidden = 0x0001,        // GetDocuments skips such URI entries unless asked not to
        kFlag0002 = 0x0002,
        kFlag0040 = 0x0040,
        kFlag0200 = 0x0200,
        kFlag0400 = 0x0400,
        kSizeNotCounted = 0x0800,  // the size counts as 0 in the transaction record
        kFlag1000 = 0x1000,        // stored inverted
        kFlag2000 = 0x2000,
        kFixedResult = 0x4000,  // the target of a pinned result
    };

    // Who may see the document and who may not.
    struct SecurityAccess {
        std::set<SarcIdentity> allowed;
        std::set<SarcIdentity> denied;

        bool operator==(const SecurityAccess&) const = default;
    };

    Document() = default;
    // Deep: both streams are copied with their positions.
    Document(const Document& other);
    Document& operator=(const Document&) = delete;
    ~Document() override = default;

    virtual const std::u16string& URI() const { return uri_; }
    virtual void URI(const std::u16string& uri) { uri_ = uri; }
    std::string URIAsString() const;
    // The forms shown to a user and opened by a click; the analysing side may refine them.
    virtual std::string PrintableURIAsString() const { return URIAsString(); }
    virtual std::string ClickableURIAsString() const { return URIAsString(); }

    SourceKey GetSourceKey() const { return SourceKey(physical, collection, source); }
    // The bytes that the document brings into the pending transaction: both streams.
    uint32_t StreamedSize() const;
    // Drops the streams' bytes once a slice has taken the document; the description stays.
    void Clear();
    static std::u16string GetTemporaryPath();

    VantuFile::MemoryBuffer wordStream;  // one zlib unit of the analysed document; empty: nothing to index
    VantuFile::MemoryBuffer cachedCopy;  // the bytes of the cached copy
    std::u16string name;
    std::u16string title;
    std::string extendedText;
    Vantu::DateTime checkDate;
    Vantu::DateTime contentDate;  // minimum: not known, the check date stands in
    Vantu::DateTime modificationDate;
    uint16_t collection = 0;
    uint16_t source = 0;
    uint16_t physical = 0;
    uint32_t size = 0;
    uint32_t skipCode = 0;  // not 0: the slices do not index the document
    uint16_t flags = 0;
    uint32_t documentSize = 0;
    uint16_t status = 0;
    uint32_t extra = 0;
    SecurityAccess securityAccess;
    std::vector<std::u16string> links;
    std::u16string redirect;

private:
    std::u16string uri_;
};

}  // namespace Ostrel
