#include "SarException.h"

namespace Ostrel {

const Vantu::SmartPtr<Vantu::MessageInfo>& SarEmptyMessage() {
    // No domain: the text is empty, so a log line of such a failure shows only its suffix.
    static const Vantu::SmartPtr<Vantu::MessageInfo> empty = new Vantu::MessageInfo("", -1, "", 0);
    return empty;
}

}  // namespace Ostrel
