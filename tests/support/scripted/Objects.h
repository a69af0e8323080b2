// The objects of the scripted runtime.
#pragma once

#include <atomic>
#include <string>

#include "lux/Names.h"
#include "lux/Ref.h"
#include "tests/support/scripted/Script.h"

namespace scripted {

Script& TheScript();

// Writes the record and returns the answer to the call of this name.
Answer Record(const std::string& call, const std::string& arguments = "");
// A failure first of the call itself, then of the call with the name behind it: one record.
Answer RecordNamed(const std::string& call, const std::string& name, const std::string& arguments = "");

std::string Text(const wchar_t* text);
std::string Text(const lux::LUXVariant& value);

// Counts references and the live objects.
template <class Interface>
class Object : public Interface {
  public:
    Object() { Count(1); }
    long Acquire() override { return ++m_references; }
    long Release() override {
        const long left = --m_references;
        if (left == 0) delete this;
        return left;
    }
    lux::LUX_RESULT QueryInterface(const lux::LUXInterfaceId* id, void** result) override {
        *result = Find(*id);
        if (!*result) return lux::LUX_NO_INTERFACE;
        Acquire();
        return lux::LUX_OK;
    }

  protected:
    virtual ~Object() { Count(-1); }
    virtual void* Find(const lux::LUXInterfaceId&) { return nullptr; }

  private:
    static void Count(long change) {
        const std::lock_guard lock(TheScript().mutex);
        TheScript().liveObjects += change;
    }
    std::atomic<long> m_references{1};
};

// Properties by the table of their names and types.
template <class Interface>
class Stored : public Object<Interface> {
  public:
    Stored(std::string name, const lux::LUXPropertyRow* rows, size_t count)
        : m_name(std::move(name)), m_rows(rows), m_count(count) {}
    const std::string& Name() const { return m_name; }
    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override;
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override;

  private:
    const lux::LUXPropertyRow* Row(const wchar_t* name) const;

    std::string m_name;
    const lux::LUXPropertyRow* m_rows;
    size_t m_count;
    std::map<std::wstring, lux::LUXVariant> m_values;  // no interfaces: these are only recorded
};

lux::LUXComponent* MakeComponent(const std::wstring& id);
lux::LUXFactory* TheFactory();

}  // namespace scripted
