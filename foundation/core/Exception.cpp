#include "core/Exception.h"

namespace Vantu {

BaseException::BaseException(const std::u16string& text) : info_(MessageInfo::FromText(text)) {}

BaseException::BaseException(SmartPtr<MessageInfo> info) : info_(std::move(info)) {}

std::u16string BaseException::What() const { return info_ ? info_->GetMsg() : std::u16string(); }

}  // namespace Vantu
