#include "core/CoreMessages.h"

#include "core/Messages.h"

namespace Vantu {

namespace {

// Keeps the texts in the message service for the life of the process: the service's counter pairs
// this Init with the Free at exit, so another module's Free never drops them.
class CoreMessagesModule {
public:
    CoreMessagesModule() {
        VantuMessages::Init();
        VantuMessages::Register(kDomain, kSystemErrorMessage, u"System error %1: %2.");
        VantuMessages::Register(kDomain, kInvalidDateMessage, u"Invalid date: %1.");
        VantuMessages::Register(kDomain, kThreadStartedMessage, u"The thread %1 is already started.");
    }
    ~CoreMessagesModule() { VantuMessages::Free(); }
    CoreMessagesModule(const CoreMessagesModule&) = delete;
    CoreMessagesModule& operator=(const CoreMessagesModule&) = delete;

    static constexpr const char* kDomain = "VANTUCORE";
};

}  // namespace

const char* CoreMessageDomain() {
    static CoreMessagesModule module;
    return CoreMessagesModule::kDomain;
}

}  // namespace Vantu
