#include "SourceKey.h"

namespace Ostrel {

Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const SourceKey& key) {
    return stream << key.physical << key.collection << key.source;
}

Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, SourceKey& key) {
    return stream >> key.physical >> key.collection >> key.source;
}

}  // namespace Ostrel
