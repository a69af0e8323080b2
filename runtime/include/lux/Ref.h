// An owning reference to an object of the media runtime.
#pragma once

#include <utility>

#include "lux/Interfaces.h"

namespace lux {

template <class T>
class Ref {
  public:
    Ref() = default;
    Ref(const Ref& other) : m_object(other.m_object) {
        if (m_object) {
            m_object->Acquire();
        }
    }
    Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Ref() { Reset(); }

    // Takes over a reference that the caller owns.
    static Ref Adopt(T* object) {
        Ref result;
        result.m_object = object;
        return result;
    }
    // Takes a reference of its own.
    static Ref Share(T* object) {
        if (object) {
            object->Acquire();
        }
        return Adopt(object);
    }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

    // For an out argument: releases the object, and takes over the one that the callee stores.
    T** Out() {
        Reset();
        return &m_object;
    }
    void Reset() {
        if (T* object = std::exchange(m_object, nullptr)) {
            object->Release();
        }
    }
    // Gives the reference to the caller.
    T* Detach() { return std::exchange(m_object, nullptr); }

    // Returns another interface of the object, or null.
    template <class Other>
    Ref<Other> As() const {
        Ref<Other> result;
        if (m_object) {
            void* other = nullptr;
            if (m_object->QueryInterface(&Other::kId, &other) == LUX_OK) {
                result = Ref<Other>::Adopt(static_cast<Other*>(other));
            }
        }
        return result;
    }

  private:
    T* m_object = nullptr;
};

}  // namespace lux
