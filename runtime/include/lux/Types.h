// The values that cross the media runtime's interface. docs/media-runtime.md is the contract.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lux {

class LUXInterface;

// What an operation returns. A caller treats every value except LUX_OK and LUX_INPUT_FULL as a failure.
enum LUX_RESULT : int32_t {
    LUX_OK = 0,
    LUX_FAIL = 1,
    LUX_OUT_OF_MEMORY = 2,
    LUX_INVALID_ARGUMENT = 3,
    LUX_NO_INTERFACE = 4,      // the object does not have the interface that was asked for
    LUX_WRONG_STATE = 5,       // not possible before Init, or after Terminate
    LUX_NOT_SUPPORTED = 6,     // the runtime has no such component, or the component no such mode
    LUX_INVALID_POINTER = 7,   // an argument that must not be null is null
    LUX_UNKNOWN_PROPERTY = 8,  // the object has no property of this name
    LUX_INVALID_TYPE = 9,      // the property has another type
    LUX_NO_DEVICE = 10,        // the screen or the Direct3D device cannot be used
    LUX_NOT_FOUND = 11,
    LUX_VERSION_TOO_OLD = 12,  // the caller was built for a newer interface
    LUX_INPUT_FULL = 25,       // the input was not taken; take an output, then submit it again
};

// 16 bits each, from the highest: major, minor, sub-minor, build.
using LUXVersion = uint64_t;

constexpr LUXVersion MakeVersion(uint16_t major, uint16_t minor, uint16_t subMinor, uint16_t build) {
    return static_cast<uint64_t>(major) << 48 | static_cast<uint64_t>(minor) << 32 |
           static_cast<uint64_t>(subMinor) << 16 | build;
}

// The version of this header, 1.4.33.0. The service passes it to LUXInit.
inline constexpr LUXVersion LUX_HEADER_VERSION = MakeVersion(1, 4, 33, 0);

enum LUXSurfaceFormat : int32_t {
    LUX_SURFACE_UNKNOWN = 0,
    LUX_SURFACE_NV12 = 1,
    LUX_SURFACE_BGRA = 3,
    // High bit depth, which may carry HDR metadata.
    LUX_SURFACE_P010 = 10,
    LUX_SURFACE_R10G10B10A2 = 11,
    LUX_SURFACE_RGBA_F16 = 13,
};

enum LUXVariantType : int32_t {
    LUX_VARIANT_EMPTY = 0,
    LUX_VARIANT_BOOL = 1,
    LUX_VARIANT_INT64 = 2,
    LUX_VARIANT_SIZE = 5,
    LUX_VARIANT_RATE = 7,
    LUX_VARIANT_STRING = 10,       // 8-bit; freed by the holder with CoTaskMemFree
    LUX_VARIANT_WIDE_STRING = 11,  // freed by the holder with CoTaskMemFree
    LUX_VARIANT_INTERFACE = 12,    // released by the holder; may be null
};

struct LUXSize {
    int32_t width;
    int32_t height;
    bool operator==(const LUXSize&) const = default;
};

struct LUXRate {
    uint32_t numerator;
    uint32_t denominator;
    bool operator==(const LUXRate&) const = default;
};

// The value of a property.
struct LUXVariant {
    LUXVariantType type;
    union {
        uint8_t boolValue;  // 0 or 1
        int64_t int64Value;
        LUXSize sizeValue;
        LUXRate rateValue;
        char* stringValue;
        wchar_t* wideStringValue;
        LUXInterface* interfaceValue;
    };
};
static_assert(sizeof(LUXVariant) == 16 && offsetof(LUXVariant, int64Value) == 8);

enum LUXTraceLevel : int32_t {
    LUX_TRACE_ERROR = 0,
    LUX_TRACE_WARNING = 1,
    LUX_TRACE_INFO = 2,
    LUX_TRACE_DEBUG = 3,
};

enum LUXAcceleration : int32_t {
    LUX_ACCELERATION_NONE = 0,  // the component is not supported
    LUX_ACCELERATION_HARDWARE = 1,
    LUX_ACCELERATION_GPU = 2,
    LUX_ACCELERATION_SOFTWARE = 3,
};

// Names an interface in LUXInterface::QueryInterface.
struct LUXInterfaceId {
    uint64_t high;
    uint64_t low;
    bool operator==(const LUXInterfaceId&) const = default;
};

}  // namespace lux
