#include "SarException.h"

namespace Ostrel {

const Vantu::SmartPtr<Vantu::MessageInfo>& SarEmptyMessage() {
    static const Vantu::SmartPtr<Vantu::MessageInfo> empty = new Vantu::MessageInfo(SarMessageDomain(), -1, "", 0);
    return empty;
}

}  // namespace Ostrel
