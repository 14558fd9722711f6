// One named, typed value of a document, with flags that say whether it is indexed and whether it travels
// with the stored document. A value type: copy it freely; one thread at a time per object.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CustomFieldValue.h"

namespace Ostrel {

class CustomField {
public:
    enum Type : uint8_t {
        kString = 0,
        kDouble = 1,
        kDate = 2,
        kLong = 3,
        kBuiltIn = 4,  // computed by the engine, never stored
        kUnknown = 0xFF,
    };
    enum Flags : uint8_t { kIndexed = 0x02, kTravels = 0x04 };
    static constexpr char kPrefix = '@';

    CustomField() = default;
    // The type follows the value's form.
    CustomField(std::string name, CustomFieldValue value, uint8_t flags);
    CustomField(std::string name, Type type, CustomFieldValue value, uint8_t flags);
    virtual ~CustomField() = default;
    CustomField(const CustomField&) = default;
    CustomField& operator=(const CustomField&) = default;

    const std::string& Name() const { return name_; }
    Type GetType() const { return type_; }
    const CustomFieldValue& Value() const { return value_; }
    uint8_t GetFlags() const { return flags_; }
    bool IsIndexed() const { return (flags_ & kIndexed) != 0; }
    bool Travels() const { return (flags_ & kTravels) != 0; }

    // The exact number of bytes that operator<< writes.
    virtual uint32_t StreamedSize() const;

    bool operator==(const CustomField& o) const {
        return name_ == o.name_ && type_ == o.type_ && value_ == o.value_ && flags_ == o.flags_;
    }

    // The fields that this library itself knows: the built-in "docid". Names are taken with or without
    // the prefix; the listed fields carry it, like every field.
    static Type GetCustomFieldType(const std::string& name);
    // The key under which the index keeps a field: the name in the base form of its letters (lower case,
    // accents off), so that a query finds a field however its name was written.
    static std::string MakeKey(const std::string& name);
    static bool GetIsSystemField(const std::string& name);
    static void GetAvailableCustomFieldsList(std::vector<CustomField>& fields);

    // The name as a narrow string, u8 type, u8 flags, then the value in its own form.
    friend Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const CustomField& field);
    friend Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, CustomField& field);

private:
    std::string name_ = std::string(1, kPrefix);
    Type type_ = kUnknown;
    CustomFieldValue value_;
    uint8_t flags_ = 0;
};

}  // namespace Ostrel
