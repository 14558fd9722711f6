// The engine's exception family: every failure carries a message of the domain "SARVANE".
// Exceptions are values: copy, clone and rethrow them on any thread.
#pragma once

#include "core/Exception.h"
#include "SarMessages.h"

namespace Ostrel {

inline constexpr const char* kSarMessageDomain = "SARVANE";

// The shared message of exceptions that have none of their own.
const Vantu::SmartPtr<Vantu::MessageInfo>& SarEmptyMessage();

class SarException : public Vantu::Exception {
public:
    explicit SarException(Vantu::SmartPtr<Vantu::MessageInfo> info) : Vantu::Exception(std::move(info)) {}
    explicit SarException(const std::u16string& text) : Vantu::Exception(text) {}
    SarException(const SarException&) = default;
    SarException* Clone() const override { return new SarException(*this); }
    [[noreturn]] void Rethrow() const override { throw *this; }
};

// One class per kind of failure; each adds nothing but its identity.
#define SAR_EXCEPTION(Name)                                                             \
    class Name : public SarException {                                                  \
    public:                                                                             \
        Name() : SarException(SarEmptyMessage()) {}                                     \
        explicit Name(Vantu::SmartPtr<Vantu::MessageInfo> info) : SarException(std::move(info)) {} \
        Name(const Name&) = default;                                                    \
        Name* Clone() const override { return new Name(*this); }                        \
        [[noreturn]] void Rethrow() const override { throw *this; }                     \
    }

SAR_EXCEPTION(SarIndexAlreadyStarted);
SAR_EXCEPTION(SarIndexNotStarted);
SAR_EXCEPTION(SarIndexReadOnly);
SAR_EXCEPTION(SarCannotDoRecoveryIndexIsReadOnly);
SAR_EXCEPTION(SarInvalidCollectionID);
SAR_EXCEPTION(SarInvalidMirrorID);
SAR_EXCEPTION(SarInvalidPhysicalIndexID);
SAR_EXCEPTION(SarInvalidSliceID);
SAR_EXCEPTION(SarInvalidConfiguration);
SAR_EXCEPTION(SarInvalidIndexVersionException);
SAR_EXCEPTION(SarInvalidIndexPath);
SAR_EXCEPTION(SarInvalidCustomField);
SAR_EXCEPTION(SarCannotAddDocumentToFileURI);
SAR_EXCEPTION(SarNoSpaceLeft);
SAR_EXCEPTION(SarTooManyDocuments);
SAR_EXCEPTION(SarDocumentNotFound);
SAR_EXCEPTION(SarQueryException);

#undef SAR_EXCEPTION

}  // namespace Ostrel

// A message of the domain "SARVANE" with up to three parameters, recording where it was raised.
// The domain comes through SarMessageDomain(), which loads the table first.
#define SAR_MESSAGE(id, ...) VANTU_MESSAGE(::Ostrel::SarMessageDomain(), id __VA_OPT__(, ) __VA_ARGS__)
