#include "core/MessageInfo.h"

namespace Vantu {

const std::u16string MessageInfo::EMPTY_PARAM_VALUE = u"\x01<empty>";

MessageInfo::MessageInfo(std::string domain, int32_t id, const char* file, int line, std::vector<std::u16string> params)
    : domain_(std::move(domain)), id_(id), file_(file ? file : ""), line_(line), params_(std::move(params)) {}

SmartPtr<MessageInfo> MessageInfo::FromText(std::u16string text) {
    return new MessageInfo("", -1, "", 0, {std::move(text)});
}

std::u16string MessageInfo::GetMsg(bool withId, VantuMessages::Language language) const {
    if (domain_.empty()) return params_.empty() ? std::u16string() : params_[0];
    std::u16string pattern = VantuMessages::ReadMessage(domain_, id_, language);
    std::u16string out;
    if (withId) out = u"[" + FromUtf8(domain_) + u" " + FromUtf8(std::to_string(id_)) + u"] ";
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == u'%' && i + 1 < pattern.size() && pattern[i + 1] >= u'1' && pattern[i + 1] <= u'9') {
            size_t index = pattern[++i] - u'1';
            if (index < params_.size() && params_[index] != EMPTY_PARAM_VALUE) out += params_[index];
        } else {
            out.push_back(pattern[i]);
        }
    }
    return out;
}

}  // namespace Vantu
