// A numbered message with its parameters, rendered on demand in the reader's language.
// Immutable after construction and reference counted: safe to read and release on any thread.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "core/Messages.h"
#include "core/RefCounted.h"
#include "core/Text.h"

namespace Vantu {

class MessageInfo : public SPRefCounter {
public:
    static const std::u16string EMPTY_PARAM_VALUE;

    MessageInfo(std::string domain, int32_t id, const char* file, int line, std::vector<std::u16string> params = {});

    // A message that is its own text (no domain): what a BaseException built from a wide string holds.
    static SmartPtr<MessageInfo> FromText(std::u16string text);

    // Shape helpers: each argument becomes one parameter; integers in decimal, narrow strings as UTF-8.
    template <class... Args>
    static SmartPtr<MessageInfo> Make(const std::string& domain, int32_t id, const char* file, int line,
                                      const Args&... args) {
        return new MessageInfo(domain, id, file, line, {Param(args)...});
    }

    // The text with %1, %2, ... replaced by the parameters (EMPTY_PARAM_VALUE renders as nothing).
    // The flag asks for the id to be prefixed, as "[SARVANE 12] ...".
    std::u16string GetMsg(bool withId = false, VantuMessages::Language language = VantuMessages::kDefaultLanguage) const;

    const std::string& Domain() const { return domain_; }
    int32_t Id() const { return id_; }
    const char* File() const { return file_; }
    int Line() const { return line_; }
    const std::vector<std::u16string>& Params() const { return params_; }

    static std::u16string Param(const std::u16string& s) { return s; }
    static std::u16string Param(const char16_t* s) { return s; }
    static std::u16string Param(const std::string& s) { return FromUtf8(s); }
    static std::u16string Param(const char* s) { return FromUtf8(s); }
    template <class N, std::enable_if_t<std::is_integral_v<N>, int> = 0>
    static std::u16string Param(N n) {
        return FromUtf8(std::to_string(n));
    }

private:
    std::string domain_;
    int32_t id_;
    const char* file_;
    int line_;
    std::vector<std::u16string> params_;
};

}  // namespace Vantu

// Builds a MessageInfo that records where it was raised.
#define VANTU_MESSAGE(domain, id, ...) ::Vantu::MessageInfo::Make(domain, id, __FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
