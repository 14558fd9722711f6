#include "SarMessages.h"

#include "core/Messages.h"
#include "SarException.h"

namespace Ostrel {

namespace {

// Holds the table in the message service from the first use to the end of the process; the service's own
// counter pairs this Init with the Free at exit, so another module's Free never drops the engine's texts.
class SarMessagesModule {
public:
    SarMessagesModule() {
        VantuMessages::Init();
        std::vector<unsigned char> block = SarMessageBlock();
        VantuMessages::Load(block.data(), static_cast<unsigned int>(block.size()), "SarMsg-I");
    }
    ~SarMessagesModule() { VantuMessages::Free(); }
    SarMessagesModule(const SarMessagesModule&) = delete;
    SarMessagesModule& operator=(const SarMessagesModule&) = delete;
};

void PutU32(std::vector<unsigned char>& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<unsigned char>(value >> shift));
}

}  // namespace

const std::vector<SarMessageText>& SarMessageTable() {
    static const std::vector<SarMessageText> table = {
        {0, u"Applying transaction: %1"},
        {1, u"Index compaction was canceled."},
        {3, u"Writing the transaction."},
        {4, u"The configuration of the sarvane cannot be changed while the system is running."},
        {5, u"The mirror cannot not be changed in configuration of the sarvane."},
        {6, u"The physical index cannot not be changed in configuration of the sarvane."},
        {7, u"The slice cannot not be changed in configuration of the sarvane."},
        {8, u"This collection (id: %1) is not supported by the sarvane."},
        {9, u"The document was not found: %1"},
        {10, u"A document was added to an invalid index (id: %1). Therefore, it cannot be processed."},
        {11, u"Invalid collection (id: %1). This collection already exists in the index."},
        {12, u"The configuration of the index engine is invalid."},
        {13, u"Invalid field %1."},
        {14, u"User field %1 already exists with a different type in the index."},
        {15, u"Invalid path for the index engine (path: %1)."},
        {16, u"Invalid index version: %1, this version is required: %2."},
        {17, u"Invalid mirror (id: %1). This mirror is not part of the index (id: %2)"},
        {18, u"The multiplier is invalid. It must be smaller than or equal to: %1"},
        {19, u"The index (id: %1) does not exist."},
        {20, u"Invalid slice (id: %1). This slice does not exist for the mirror (id: %2) and index (id: %3)."},
        {21, u"The number of documents to refine is invalid. It must be smaller than or equal to: %1"},
        {22, u"This invalid query cannot be executed: %1"},
        {23, u"There is not enough free space to add documents to the index. At least %1 MB is needed."},
        {24, u"There is not enough free space to compact the index. At least %1 MB is needed."},
        {25, u"There is not enough free space on %1 to compact the index. At least %2 MB is needed."},
        {26, u"There is not enough free space to start the index. At least %1 MB is needed."},
        {27, u"There is no space left on device."},
        {29, u"The slice (id: %1) already exists in this index (id: %2) and mirror (id: %3)."},
        {30, u"There are too many documents in the index. Try using the Compact Index option."},
        {31, u"The index compaction is completed."},
        {32, u"Retrieving files from the previous compaction operation."},
        {33, u"Deleting files from the previous compaction operation and returning to your original index."},
        {34, u"The state of the index is invalid. Proceeding with recovery..."},
        {35, u"The transaction reader is resuming the operations from: %1."},
        {36, u"The state of the transaction writer is invalid. Proceeding with recovery..."},
        {37, u"The state of the transaction writer is invalid. Proceeding with rollback..."},
        {38, u"The state of the transaction reader is invalid. Proceeding with rollback on: %1"},
        {39, u"Compacting the indexes."},
        {40, u"Transaction %1 written. (%2 documents to add; %3 documents to delete)"},
        {41, u"Document cannot be added to the index because its URL is too long (%1)."},
    };
    return table;
}

std::vector<unsigned char> SarMessageBlock() {
    const std::string domain = kSarMessageDomain;
    const std::vector<SarMessageText>& table = SarMessageTable();
    std::vector<unsigned char> block;
    PutU32(block, static_cast<uint32_t>(table.size()));
    for (const SarMessageText& message : table) {
        PutU32(block, static_cast<uint32_t>(domain.size()));
        block.insert(block.end(), domain.begin(), domain.end());
        PutU32(block, static_cast<uint32_t>(message.id));
        PutU32(block, 2);
        const std::u16string text = message.text;
        block.push_back(1);
        PutU32(block, static_cast<uint32_t>(text.size() * 2));
        for (char16_t c : text) {
            block.push_back(static_cast<unsigned char>(c));
            block.push_back(static_cast<unsigned char>(c >> 8));
        }
        block.push_back(0);  // language 1 carries no texts
    }
    return block;
}

const char* SarMessageDomain() {
    static const SarMessagesModule loaded;
    return kSarMessageDomain;
}

std::u16string SarReadMessage(int32_t id) { return VantuMessages::ReadMessage(SarMessageDomain(), id); }

}  // namespace Ostrel
