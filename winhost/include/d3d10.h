// What Direct3D 11 shares with Direct3D 10.
#pragma once

#include <unknwn.h>

DEFINE_GUID(IID_ID3D10Multithread, 0x9b7e4e00, 0x342c, 0x4106, 0xa1, 0x9f, 0x4f, 0x27, 0x04, 0xf6, 0x89,
            0xf0);

struct ID3D10Multithread : public IUnknown {
    // What the protection was before.
    virtual BOOL STDMETHODCALLTYPE SetMultithreadProtected(BOOL protect) = 0;
    virtual BOOL STDMETHODCALLTYPE GetMultithreadProtected() = 0;
};
