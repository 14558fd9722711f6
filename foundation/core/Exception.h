// Exceptions carry a MessageInfo, not a text: What() renders it when someone asks.
// Clone and Rethrow let an exception cross threads with its exact class. Any thread.
#pragma once

#include <exception>
#include <string>

#include "core/MessageInfo.h"

namespace Vantu {

class BaseException {
public:
    explicit BaseException(const std::u16string& text);
    explicit BaseException(SmartPtr<MessageInfo> info);
    BaseException(const BaseException&) = default;
    BaseException& operator=(const BaseException&) = default;
    virtual ~BaseException() = default;

    virtual std::u16string What() const;
    virtual BaseException* Clone() const { return new BaseException(*this); }
    [[noreturn]] virtual void Rethrow() const { throw *this; }

    const SmartPtr<MessageInfo>& GetMessageInfo() const { return info_; }
    std::string WhatUtf8() const { return ToUtf8(What()); }

private:
    SmartPtr<MessageInfo> info_;
};

class Exception : public BaseException {
public:
    Exception* Clone() const override { return new Exception(*this); }
    [[noreturn]] void Rethrow() const override { throw *this; }

    // A foundation failure that has no numbered message.
    static Exception FromText(const std::u16string& text) { return Exception(text); }

protected:
    using BaseException::BaseException;
};

}  // namespace Vantu

// Declares an exception class that adds nothing but its identity: constructors from a
// MessageInfo (and text), copy, and the clone/rethrow pair of the exact class.
#define VANTU_DECLARE_EXCEPTION(Name, Base)                                 \
    class Name : public Base {                                              \
    public:                                                                 \
        explicit Name(::Vantu::SmartPtr<::Vantu::MessageInfo> info)         \
            : Base(std::move(info)) {}                                      \
        Name(const Name&) = default;                                        \
        Name* Clone() const override { return new Name(*this); }            \
        [[noreturn]] void Rethrow() const override { throw *this; }         \
                                                                            \
    protected:                                                              \
        explicit Name(const std::u16string& text) : Base(text) {}           \
    }
