// Owner types for the objects, strings and variants of COM.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <oleauto.h>

#include "base/Handles.h"

template <class Interface>
struct InterfaceTraits {
    using Value = Interface*;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { value->Release(); }
};
template <class Interface>
using UniqueInterface = UniqueResource<InterfaceTraits<Interface>>;

struct BstrTraits {
    using Value = BSTR;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { SysFreeString(value); }
};
class UniqueBstr : public UniqueResource<BstrTraits> {
  public:
    explicit UniqueBstr(const wchar_t* text) : UniqueResource(SysAllocString(text)) {}
};

class Variant {
  public:
    Variant() { VariantInit(&m_value); }
    ~Variant() { VariantClear(&m_value); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT* Get() { return &m_value; }
    VARIANT* operator->() { return &m_value; }

  private:
    VARIANT m_value;
};
