// The numbered texts of the domain "SARVANE", compiled into the library and loaded on first use.
// Any thread: the first caller loads the table, every later one reads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Ostrel {

struct SarMessageText {
    int32_t id;
    const char16_t* text;
};

// The engine's messages in id order, as the library ships them (language 0 only).
const std::vector<SarMessageText>& SarMessageTable();

// The table in the loadable block form: u32 record count, then per record the domain with its u32 length,
// the u32 id, the u32 language count 2, a present text for language 0 and an absent one for language 1.
std::vector<unsigned char> SarMessageBlock();

// The domain name, once the table is in the message service; every "SARVANE" message is built through it,
// so none can be rendered before the table is loaded.
const char* SarMessageDomain();

// The text of a message in the default language, for log entries.
std::u16string SarReadMessage(int32_t id);

}  // namespace Ostrel
