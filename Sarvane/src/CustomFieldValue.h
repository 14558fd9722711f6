// One value of a custom field in one of four forms: string, double, date or long. A value type: copy it
// freely; one thread at a time per object.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "core/DateTime.h"
#include "file/BinaryStream.h"

namespace Ostrel {

class CustomFieldValue {
public:
    // The forms, numbered as the field types that hold them.
    enum Form : uint8_t { kString = 0, kDouble = 1, kDate = 2, kLong = 3 };

    CustomFieldValue() = default;
    explicit CustomFieldValue(std::string value) : value_(std::move(value)) {}
    explicit CustomFieldValue(const char* value) : value_(std::string(value)) {}
    explicit CustomFieldValue(int32_t value) : value_(value) {}
    explicit CustomFieldValue(double value) : value_(value) {}
    explicit CustomFieldValue(Vantu::DateTime value) : value_(value) {}
    virtual ~CustomFieldValue() = default;
    CustomFieldValue(const CustomFieldValue&) = default;
    CustomFieldValue& operator=(const CustomFieldValue&) = default;

    Form GetForm() const { return Form(value_.index()); }
    // The value in the form asked for; a value of another form raises std::bad_variant_access.
    const std::string& GetString() const { return std::get<std::string>(value_); }
    double GetDouble() const { return std::get<double>(value_); }
    Vantu::DateTime GetDate() const { return std::get<Vantu::DateTime>(value_); }
    int32_t GetLong() const { return std::get<int32_t>(value_); }

    bool operator==(const CustomFieldValue& o) const { return value_ == o.value_; }

    // u8 form, then the value: a narrow string, an f64, a date's u32 or an i32.
    friend Vantu::BaseBinaryStream& operator<<(Vantu::BaseBinaryStream& stream, const CustomFieldValue& value);
    friend Vantu::BaseBinaryStream& operator>>(Vantu::BaseBinaryStream& stream, CustomFieldValue& value);

private:
    // The alternatives stand in the order of Form, so that index() is the form.
    std::variant<std::string, double, Vantu::DateTime, int32_t> value_;
};

}  // namespace Ostrel
