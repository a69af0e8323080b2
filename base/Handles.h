// Owner types for handles, sockets and other resources of the platform: each type knows its closing call and
// its invalid value. A raw value is only ever borrowed from an owner. Closing preserves GetLastError, so that
// an error survives the clean-up.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <setupapi.h>
#include <wlanapi.h>

#include <utility>

template <class Traits>
class UniqueResource {
  public:
    using Value = typename Traits::Value;

    UniqueResource() = default;
    explicit UniqueResource(Value value) : m_value(value) {}
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.Release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    ~UniqueResource() { Reset(); }

    explicit operator bool() const { return m_value != Traits::Invalid(); }
    Value Get() const { return m_value; }
    Value Release() { return std::exchange(m_value, Traits::Invalid()); }

    void Reset(Value value = Traits::Invalid()) {
        if (*this) {
            const DWORD error = GetLastError();
            Traits::Close(m_value);
            SetLastError(error);
        }
        m_value = value;
    }

    // For calls that store what they open through a pointer.
    Value* Receive() {
        Reset();
        return &m_value;
    }

  private:
    Value m_value = Traits::Invalid();
};

// Events, mutexes, completion ports: their creating calls return null on failure.
struct HandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CloseHandle(value); }
};
using UniqueHandle = UniqueResource<HandleTraits>;

// Files and devices: CreateFileA returns INVALID_HANDLE_VALUE on failure.
struct FileHandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Value value) { CloseHandle(value); }
};
using UniqueFileHandle = UniqueResource<FileHandleTraits>;

// Libraries that the process has loaded.
struct LibraryTraits {
    using Value = HMODULE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { FreeLibrary(value); }
};
using UniqueLibrary = UniqueResource<LibraryTraits>;

struct SocketTraits {
    using Value = SOCKET;
    static Value Invalid() { return INVALID_SOCKET; }
    static void Close(Value value) { closesocket(value); }
};
using UniqueSocket = UniqueResource<SocketTraits>;

struct RegistryKeyTraits {
    using Value = HKEY;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { RegCloseKey(value); }
};
using UniqueRegistryKey = UniqueResource<RegistryKeyTraits>;

struct DeviceInfoListTraits {
    using Value = HDEVINFO;
    static Value Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Value value) { SetupDiDestroyDeviceInfoList(value); }
};
using UniqueDeviceInfoList = UniqueResource<DeviceInfoListTraits>;

struct EventSourceTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { DeregisterEventSource(value); }
};
using UniqueEventSource = UniqueResource<EventSourceTraits>;

// A client of the WLAN service.
struct WlanHandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { WlanCloseHandle(value, nullptr); }
};
using UniqueWlanHandle = UniqueResource<WlanHandleTraits>;

// Memory that the WLAN service has allocated.
struct WlanMemoryTraits {
    using Value = void*;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { WlanFreeMemory(value); }
};
using UniqueWlanMemory = UniqueResource<WlanMemoryTraits>;
