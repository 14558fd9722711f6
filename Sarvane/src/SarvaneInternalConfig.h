// A slice's own settings, shared by reference with every store it builds, so that a running store
// sees a later change at once. Reference counted on any thread; values follow SarvaneConfig's locking.
#pragma once

#include "SarvaneConfig.h"
#include "core/RefCounted.h"

namespace Ostrel {

class SarvaneInternalConfig : public SarvaneConfig, public Vantu::SPRefCounter {
public:
    SarvaneInternalConfig() = default;
    explicit SarvaneInternalConfig(const SarvaneConfig& config) : SarvaneConfig(config) {}
    SarvaneInternalConfig(const SarvaneInternalConfig& config) = default;

    // Copies the values; the reference count stays the object's own.
    SarvaneInternalConfig& operator=(const SarvaneConfig& config) {
        SarvaneConfig::operator=(config);
        return *this;
    }
    SarvaneInternalConfig& operator=(const SarvaneInternalConfig& config) {
        SarvaneConfig::operator=(config);
        return *this;
    }
};

}  // namespace Ostrel
