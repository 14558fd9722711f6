// The access list of one collection and the identities it is asked about. Reference counted; the
// container changes and reads it under its indexesLock, and hands out read-only pointers to it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/RefCounted.h"

namespace Ostrel {

// One identity as the access lists know it: a user or a group, by its name.
using SarcIdentity = std::u16string;

class SarcAccessList : public Vantu::SPRefCounter {
public:
    enum class AccessType : int32_t { Allow = 0, Deny = 1 };

    // Adds the identity's entry, or replaces the one it has.
    void AddAccessControlEntry(const SarcIdentity& identity, AccessType access) { entries_[identity] = access; }
    // Removing an identity that has no entry is no fault.
    void RemoveAccessControlEntry(const SarcIdentity& identity) { entries_.erase(identity); }
    void Clear() { entries_.clear(); }

    // Whether the identities, taken together, have access: one of them must be allowed, and any denial wins.
    bool IsAllowed(const std::vector<SarcIdentity>& identities) const;

    const std::map<SarcIdentity, AccessType>& Entries() const { return entries_; }

private:
    std::map<SarcIdentity, AccessType> entries_;
};

}  // namespace Ostrel
