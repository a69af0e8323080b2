// The reference count of every object that crosses the runtime's interface.
#pragma once

#include <atomic>
#include <exception>
#include <new>

#include "lux/Interfaces.h"

namespace luxrt {

// Implements the first three methods of `Interface`. The object is created with one reference, which belongs
// to its creator, and is deleted with the last one.
template <class Interface>
class Object : public Interface {
  public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    long Acquire() override { return m_references.fetch_add(1, std::memory_order_relaxed) + 1; }
    long Release() override {
        const long left = m_references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    lux::LUX_RESULT QueryInterface(const lux::LUXInterfaceId* id, void** result) override {
        if (!id || !result) {
            return lux::LUX_INVALID_POINTER;
        }
        *result = Find(*id);
        if (!*result) {
            return lux::LUX_NO_INTERFACE;
        }
        Acquire();
        return lux::LUX_OK;
    }

  protected:
    virtual ~Object() = default;

  private:
    // The object as the interface of this id, or null.
    virtual void* Find(const lux::LUXInterfaceId&) { return nullptr; }

    std::atomic<long> m_references{1};
};

// Runs the body of a method, which returns a result. No exception crosses the interface.
template <class Body>
lux::LUX_RESULT Guarded(Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return lux::LUX_OUT_OF_MEMORY;
    } catch (const std::exception&) {
        return lux::LUX_FAIL;
    }
}

}  // namespace luxrt
