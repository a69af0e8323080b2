// The named and typed values of an object.
#pragma once

#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "lux/Interfaces.h"
#include "lux/Names.h"

namespace luxrt {

// Makes a value of the type that the argument's type stands for.
lux::LUXVariant ToVariant(bool value);
lux::LUXVariant ToVariant(int64_t value);
lux::LUXVariant ToVariant(lux::LUXSize value);
lux::LUXVariant ToVariant(lux::LUXRate value);

// What a property starts with, and which values it takes.
struct PropertyRule {
    std::wstring_view name;
    lux::LUXVariant initial;
    bool (*takes)(const lux::LUXVariant& value);
};

// Knows every name of `rows`. A property without a rule starts as false, 0 or null and takes every value of
// its type. Not thread-safe.
class Properties {
  public:
    explicit Properties(std::span<const lux::LUXPropertyRow> rows, std::span<const PropertyRule> rules = {});
    Properties(const Properties&) = delete;
    Properties& operator=(const Properties&) = delete;
    ~Properties();

    // Return LUX_INVALID_POINTER, LUX_UNKNOWN_PROPERTY, LUX_INVALID_TYPE, or LUX_INVALID_ARGUMENT for a value
    // that the property does not take. Nothing changes then.
    lux::LUX_RESULT Set(const wchar_t* name, const lux::LUXVariant* value);
    lux::LUX_RESULT Get(const wchar_t* name, lux::LUXVariant* value) const;

    // For the object itself, which asks for names of its own table only.
    const lux::LUXVariant& operator[](std::wstring_view name) const;

  private:
    struct Property {
        std::wstring_view name;
        lux::LUXVariant value;
        bool (*takes)(const lux::LUXVariant& value);
    };
    const Property* Find(std::wstring_view name) const;

    std::vector<Property> m_properties;
};

}  // namespace luxrt
