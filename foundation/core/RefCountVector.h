// A plain vector of reference-counted pointers (SmartPtr<T> or SmartPtrToConst<T>): copying it shares
// the objects. Not synchronised: one thread at a time, or the holder's lock.
#pragma once

#include <vector>

#include "core/RefCounted.h"

namespace Vantu {

template <class T, class P = SmartPtr<T>>
class RefCountVector : public std::vector<P> {
public:
    using std::vector<P>::vector;
};

}  // namespace Vantu
