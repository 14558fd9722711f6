// The message service: numbered texts by domain and id, loaded once at start-up.
// Load/Init/Free at initialisation; ReadMessage from any thread afterwards.
#pragma once

#include <cstdint>
#include <string>

namespace VantuMessages {

// -1 is the default language (0); language 1 exists in the tables but carries no texts.
using Language = int;
constexpr Language kDefaultLanguage = -1;

// Adds a block of records: u32 count, then per record u32 domain length, domain bytes, u32 id,
// u32 language count, and per language u8 present [u32 byte length, UTF-16LE text].
// Raises Vantu::Exception on a malformed block.
void Load(const unsigned char* data, unsigned int size, const char* name);

// Registers one text (language 0) directly; the engine's own table is compiled in this way.
void Register(const std::string& domain, int32_t id, std::u16string text);

// The text of the message, or a placeholder naming domain and id when none was loaded.
std::u16string ReadMessage(const std::string& domain, int32_t id, Language language = kDefaultLanguage);

// Paired by a process-wide counter; Free at zero forgets every loaded message.
void Init();
void Free();

}  // namespace VantuMessages
