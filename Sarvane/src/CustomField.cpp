#include "CustomField.h"

#include <string_view>

#include "core/Text.h"
#include "file/BinaryStreamMemoryBuffer.h"
#include "language/Language.h"

namespace Ostrel {
namespace {

// The one field the engine computes: "docid", the physical, mirror, slice and document ids joined by "+".
constexpr std::string_view kDocIdField = "docid";

std::string_view WithoutPrefix(const std::string& name) {
    std::string_view view(name);
    if (view.starts_with(CustomField::kPrefix)) view.remove_prefix(1);
    return view;
}

// The name always starts with the prefix, whichever way the caller wrote it.
std::string Prefixed(const std::string& name) {
    return name.starts_with(CustomField::kPrefix) ? name : CustomField::kPrefix + name;
}

}  // namespace

CustomField::CustomField(std::string name, CustomFieldValue value, uint8_t flags)
    : CustomField(std::move(name), Type(value.GetForm()), std::move(value), flags) {}

CustomField::CustomField(std::string name, Type type, CustomFieldValue value, uint8_t flags)
    : name_(Prefixed(name)), type_(type), value_(std::move(value)), flags_(flags) {}

uint32_t CustomField::StreamedSize() const {
    VantuFile::MemoryBuffer buffer;
    Vantu::BaseBinaryStream stream(&buffer);
    stream << *this;
    return buffer.Size();
}

std::string CustomField::MakeKey(const std::string& name) {
    std::u16string key;
    VantuLanguage::Language::ToLowerBase(Vantu::FromUtf8(name), key);
    return Vantu::ToUtf8(key);
}

CustomField::Type CustomField::GetCustomFieldType(const std::string& name) {
    return WithoutPrefix(name) == kDocIdField ? kBuiltIn : kUnknown;
}

bool CustomField::GetIsSystemField(const std::string& name) {
    return GetCustomFieldType(name) != kUnknown;
}

void CustomField::GetAvailableCustomFieldsList(std::vector<CustomField>& fields) {
    fields.clear();
    fields.emplace_back(std::string(kDocIdField), kBuiltIn, CustomFieldValue(), uint8_t(0));
}

Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const CustomField& field) {
    return stream << field.name_ << uint8_t(field.type_) << field.flags_ << field.value_;
}

Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, CustomField& field) {
    CustomField read;
    uint8_t type;
    stream >> read.name_ >> type >> read.flags_ >> read.value_;
    if (type > CustomField::kBuiltIn && type != CustomField::kUnknown) {
        Vantu::ThrowStream<Vantu::BinaryStreamException>("CustomField: unknown type " + std::to_string(type));
    }
    read.type_ = CustomField::Type(type);
    field = std::move(read);
    return stream;
}

}  // namespace Ostrel
