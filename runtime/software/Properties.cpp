#include "runtime/software/Properties.h"

#include <algorithm>
#include <cassert>

namespace luxrt {

using namespace lux;

namespace {

bool TakesAll(const LUXVariant&) {
    return true;
}

void Free(LUXVariant& value) {
    if (value.type == LUX_VARIANT_INTERFACE && value.interfaceValue) {
        value.interfaceValue->Release();
    }
    value = {};
}

// Strings are left out: no property has one.
LUXVariant Copy(const LUXVariant& value) {
    if (value.type == LUX_VARIANT_INTERFACE && value.interfaceValue) {
        value.interfaceValue->Acquire();
    }
    return value;
}

LUXVariant Empty(LUXVariantType type) {
    LUXVariant value{};
    value.type = type;
    return value;
}

}  // namespace

LUXVariant ToVariant(bool value) {
    LUXVariant result = Empty(LUX_VARIANT_BOOL);
    result.boolValue = value ? 1 : 0;
    return result;
}

LUXVariant ToVariant(int64_t value) {
    LUXVariant result = Empty(LUX_VARIANT_INT64);
    result.int64Value = value;
    return result;
}

LUXVariant ToVariant(LUXSize value) {
    LUXVariant result = Empty(LUX_VARIANT_SIZE);
    result.sizeValue = value;
    return result;
}

LUXVariant ToVariant(LUXRate value) {
    LUXVariant result = Empty(LUX_VARIANT_RATE);
    result.rateValue = value;
    return result;
}

Properties::Properties(std::span<const LUXPropertyRow> rows, std::span<const PropertyRule> rules) {
    m_properties.reserve(rows.size());
    for (const LUXPropertyRow& row : rows) {
        m_properties.push_back({row.name, Empty(row.type), TakesAll});
        const auto rule = std::ranges::find(rules, std::wstring_view(row.name), &PropertyRule::name);
        if (rule != rules.end()) {
            assert(rule->initial.type == row.type);
            m_properties.back() = {row.name, rule->initial, rule->takes ? rule->takes : TakesAll};
        }
    }
}

Properties::~Properties() {
    for (Property& property : m_properties) {
        Free(property.value);
    }
}

const Properties::Property* Properties::Find(std::wstring_view name) const {
    const auto property = std::ranges::find(m_properties, name, &Property::name);
    return property == m_properties.end() ? nullptr : &*property;
}

LUX_RESULT Properties::Set(const wchar_t* name, const LUXVariant* value) {
    if (!name || !value) {
        return LUX_INVALID_POINTER;
    }
    auto* property = const_cast<Property*>(Find(name));
    if (!property) {
        return LUX_UNKNOWN_PROPERTY;
    }
    if (property->value.type != value->type) {
        return LUX_INVALID_TYPE;
    }
    if (!property->takes(*value)) {
        return LUX_INVALID_ARGUMENT;
    }
    LUXVariant previous = property->value;
    property->value = Copy(*value);
    Free(previous);
    return LUX_OK;
}

LUX_RESULT Properties::Get(const wchar_t* name, LUXVariant* value) const {
    if (!name || !value) {
        return LUX_INVALID_POINTER;
    }
    const Property* property = Find(name);
    if (!property) {
        *value = {};
        return LUX_UNKNOWN_PROPERTY;
    }
    *value = Copy(property->value);
    return LUX_OK;
}

const LUXVariant& Properties::operator[](std::wstring_view name) const {
    const Property* property = Find(name);
    assert(property);
    return property->value;
}

}  // namespace luxrt
