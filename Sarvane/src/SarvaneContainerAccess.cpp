#include "SarvaneContainerAccess.h"

namespace Ostrel {

bool SarcAccessList::IsAllowed(const std::vector<SarcIdentity>& identities) const {
    bool allowed = false;
    for (const SarcIdentity& identity : identities) {
        auto it = entries_.find(identity);
        if (it == entries_.end()) continue;
        if (it->second == AccessType::Deny) return false;
        allowed = true;
    }
    return allowed;
}

}  // namespace Ostrel
