#include "CustomFieldValue.h"

namespace Ostrel {

Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const CustomFieldValue& value) {
    stream << uint8_t(value.GetForm());
    switch (value.GetForm()) {
    case CustomFieldValue::kString: return stream << value.GetString();
    case CustomFieldValue::kDouble: return stream << value.GetDouble();
    case CustomFieldValue::kDate: return stream << value.GetDate().Seconds();
    case CustomFieldValue::kLong: return stream << value.GetLong();
    }
    return stream;
}

Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, CustomFieldValue& value) {
    uint8_t form;
    stream >> form;
    switch (form) {
    case CustomFieldValue::kString: {
        std::string text;
        stream >> text;
        value = CustomFieldValue(std::move(text));
        return stream;
    }
    case CustomFieldValue::kDouble: {
        double number;
        stream >> number;
        value = CustomFieldValue(number);
        return stream;
    }
    case CustomFieldValue::kDate: {
        uint32_t seconds;
        stream >> seconds;
        value = CustomFieldValue(Vantu::DateTime::FromSeconds(seconds));
        return stream;
    }
    case CustomFieldValue::kLong: {
        int32_t number;
        stream >> number;
        value = CustomFieldValue(number);
        return stream;
    }
    }
    Vantu::ThrowStream<Vantu::BinaryStreamException>("CustomFieldValue: unknown form " + std::to_string(form));
}

}  // namespace Ostrel
