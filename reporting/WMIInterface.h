// Queries the host's Windows Management Instrumentation (WMI) for its operating system.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wbemidl.h>

#include <mutex>

#include "base/ComOwners.h"
#include "mailbox/OsInfoRecord.h"

class WMIInterface {
  public:
    // Initializes COM for the calling thread in the multithreaded apartment, which all threads of the process
    // share from then on. A failure is logged.
    WMIInterface();
    // Must run on the thread that constructed the object.
    ~WMIInterface();
    WMIInterface(const WMIInterface&) = delete;
    WMIInterface& operator=(const WMIInterface&) = delete;

    // Connects to WMI. Returns the code of the step that failed, or of the last step. After a failure the
    // object holds no connection.
    HRESULT DoInit();

    // Fills Version and OSType, and leaves unchanged what cannot be read. Returns the query's code, or
    // E_POINTER for a null pointer. Any thread; blocks on WMI without a time limit.
    HRESULT GetOSinformation(OsInfo* pDestBuffer);

    // Releases WMI. A running query holds its own references. Any thread.
    void Release();

  private:
    HRESULT Connect();
    HRESULT QueryOperatingSystem(UniqueInterface<IEnumWbemClassObject>& objects);
    UniqueInterface<IWbemServices> Services();

    bool m_bComInitialized = false;
    std::mutex m_mutex;  // the service may stop while a report queries WMI
    UniqueInterface<IWbemLocator> m_pLocator;
    UniqueInterface<IWbemServices> m_pServices;
};
