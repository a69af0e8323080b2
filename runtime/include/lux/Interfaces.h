// The objects of the media runtime. docs/media-runtime.md is the contract: the order of the methods,
// ownership, threads.
//
// Every class is a table of pure virtual methods in the order of their declaration, with those of the base
// first. The table has no destructor; an object ends with its last reference. No method throws.
#pragma once

#include "lux/Types.h"

namespace lux {

// The base of everything that is reference counted. A pointer that a method stores in an out argument belongs
// to the caller, who must Release it; an argument that is passed in stays the caller's.
class LUXInterface {
  public:
    // Both return the new count, which is for diagnosis only. Any thread.
    virtual long Acquire() = 0;
    virtual long Release() = 0;
    // Returns LUX_NO_INTERFACE and stores null when the object does not have the interface.
    virtual LUX_RESULT QueryInterface(const LUXInterfaceId* id, void** result) = 0;

  protected:
    ~LUXInterface() = default;
};

class LUXPropertyStorage : public LUXInterface {
  public:
    // Copies the value; of an interface, takes a reference.
    virtual LUX_RESULT SetProperty(const wchar_t* name, const LUXVariant* value) = 0;
    // The caller frees what the value holds, as LUXVariantType says.
    virtual LUX_RESULT GetProperty(const wchar_t* name, LUXVariant* value) = 0;

  protected:
    ~LUXPropertyStorage() = default;
};

// A picture or a packet on its way from one component to the next.
class LUXData : public LUXPropertyStorage {
  protected:
    ~LUXData() = default;
};

class LUXPlane : public LUXInterface {
  public:
    static constexpr LUXInterfaceId kId{0x6c75782d706c616eull, 0x65000001ull};
    // In pixels.
    virtual int32_t GetWidth() = 0;
    virtual int32_t GetHeight() = 0;
    // From one row to the next, in bytes.
    virtual int32_t GetPitch() = 0;
    // The first byte, or null when the plane is not in system memory. Valid as long as the surface.
    virtual void* GetNative() = 0;

  protected:
    ~LUXPlane() = default;
};

class LUXSurface : public LUXData {
  public:
    static constexpr LUXInterfaceId kId{0x6c75782d73757266ull, 0x61636501ull};
    virtual LUXSurfaceFormat GetFormat() = 0;
    virtual size_t GetPlanesCount() = 0;
    // Returns a borrowed pointer that is valid as long as the surface, or null when there is no such plane.
    virtual LUXPlane* GetPlane(size_t index) = 0;

  protected:
    ~LUXSurface() = default;
};

class LUXBuffer : public LUXData {
  public:
    static constexpr LUXInterfaceId kId{0x6c75782d62756666ull, 0x65720001ull};
    // In bytes.
    virtual size_t GetSize() = 0;
    // The first byte, valid as long as the buffer; or null when the buffer is not in system memory.
    virtual void* GetNative() = 0;

  protected:
    ~LUXBuffer() = default;
};

class LUXContext : public LUXPropertyStorage {
  public:
    // Frees what the context holds. Components must not be used after it.
    virtual LUX_RESULT Terminate() = 0;

  protected:
    ~LUXContext() = default;
};

class LUXContext1 : public LUXContext {
  public:
    static constexpr LUXInterfaceId kId{0x6c75782d636f6e74ull, 0x65787401ull};
    // Binds the context to an ID3D11Device, of which it keeps a reference. `featureLevel` 110 is 11.0. Null
    // makes the runtime work without a device, where it can.
    virtual LUX_RESULT InitDX11(void* device, int32_t featureLevel) = 0;

  protected:
    ~LUXContext1() = default;
};

// What a component can do, as properties.
class LUXCaps : public LUXPropertyStorage {
  public:
    virtual LUXAcceleration GetAccelerationType() = 0;

  protected:
    ~LUXCaps() = default;
};

// A stage of a pipeline. Its calls come from one thread at a time.
class LUXComponent : public LUXPropertyStorage {
  public:
    // Prepares for input of this format and size in pixels. The capture takes (LUX_SURFACE_UNKNOWN, 0, 0).
    virtual LUX_RESULT Init(LUXSurfaceFormat format, int32_t width, int32_t height) = 0;
    // Frees what Init made; Init may follow.
    virtual LUX_RESULT Terminate() = 0;
    // Drops everything that is queued.
    virtual LUX_RESULT Flush() = 0;
    // Takes one input, of which it keeps a reference. LUX_INPUT_FULL: not taken, try again later.
    virtual LUX_RESULT SubmitInput(LUXData* data) = 0;
    // Returns at once. LUX_OK with a null pointer: there is no output yet.
    virtual LUX_RESULT QueryOutput(LUXData** data) = 0;
    virtual LUX_RESULT GetCaps(LUXCaps** caps) = 0;

  protected:
    ~LUXComponent() = default;
};

// A clock that the service gives to the capture.
class LUXCurrentTime : public LUXInterface {
  public:
    static constexpr LUXInterfaceId kId{0x6c75782d74696d65ull, 0x00000001ull};
    // In units of 100 ns; never goes back.
    virtual int64_t Get() = 0;

  protected:
    ~LUXCurrentTime() = default;
};

// Where the runtime and the service write what happens. Not reference counted; lives as long as the library.
// Any thread.
class LUXTrace {
  public:
    // Whether lines are written by a thread of their own.
    virtual void EnableAsync(bool enable) = 0;
    // Turns one of the runtime's writers on or off, such as "File".
    virtual LUX_RESULT EnableWriter(const wchar_t* writer, bool enable) = 0;
    // All texts are UTF-8. `file` and `line` are the place in the caller's sources.
    virtual void TraceText(const char* file, int32_t line, LUXTraceLevel level, const char* scope,
                           const char* message) = 0;
    // Static texts, never null.
    virtual const char* GetResultText(LUX_RESULT result) = 0;
    virtual const char* GetSurfaceFormatName(LUXSurfaceFormat format) = 0;

  protected:
    ~LUXTrace() = default;
};

// Not reference counted; lives as long as the library. Any thread.
class LUXDebug {
  public:
    // Whether a failed assertion of the runtime opens a dialog.
    virtual void EnableAssertions(bool enable) = 0;

  protected:
    ~LUXDebug() = default;
};

// Not reference counted; lives as long as the library. Any thread.
class LUXFactory {
  public:
    virtual LUX_RESULT CreateContext(LUXContext** context) = 0;
    virtual LUX_RESULT CreateComponent(LUXContext* context, const wchar_t* id, LUXComponent** component) = 0;
    // Both return the same object every time.
    virtual LUX_RESULT GetTrace(LUXTrace** trace) = 0;
    virtual LUX_RESULT GetDebug(LUXDebug** debug) = 0;

  protected:
    ~LUXFactory() = default;
};

}  // namespace lux

extern "C" {
// The types of the two functions that the runtime exports, as "LUXInit" and "LUXQueryVersion".
//
// LUXInit stores the factory. It returns LUX_VERSION_TOO_OLD when `version`, the caller's LUX_HEADER_VERSION,
// is newer than the runtime's interface. It may be called again.
using LUXInit_Fn = lux::LUX_RESULT (*)(lux::LUXVersion version, lux::LUXFactory** factory);
// LUXQueryVersion stores the runtime's own version.
using LUXQueryVersion_Fn = lux::LUX_RESULT (*)(lux::LUXVersion* version);
}
