#include "SarLog.h"

namespace Ostrel {

void SarLogFailure(const Vantu::SmartPtr<Vantu::LogCallInterface>& log, std::u16string text, std::u16string_view suffix) {
    if (!log) return;
    text += suffix;
    log->AddEntry(text, Vantu::LogEntryCallInterface::Error);
}

}  // namespace Ostrel
