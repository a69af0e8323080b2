// DEFINE_GUID declares a GUID, and defines it where <initguid.h> was included before.
#ifndef GUID_DEFINED
#define GUID_DEFINED
#include <stdint.h>
#include <string.h>

typedef struct _GUID {
    uint32_t Data1;
    unsigned short Data2;
    unsigned short Data3;
    unsigned char Data4[8];
} GUID;
typedef const GUID& REFGUID;
typedef GUID IID;
typedef const IID& REFIID;
typedef GUID CLSID;
typedef const CLSID& REFCLSID;

inline bool IsEqualGUID(REFGUID a, REFGUID b) {
    return memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator==(REFGUID a, REFGUID b) {
    return IsEqualGUID(a, b);
}
#endif

#undef DEFINE_GUID
#ifdef INITGUID
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    extern "C" __attribute__((weak)) const GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
#else
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) extern "C" const GUID name
#endif
