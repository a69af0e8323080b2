// What the management instrumentation of the host says of its operating system.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wbemidl.h>

#include <mutex>

#include "base/ComOwners.h"
#include "mailbox/OsInfoRecord.h"

class WMIInterface {
  public:
    // Joins the calling thread to the multithreaded apartment, which all threads of the process share from
    // then on. A failure is logged.
    WMIInterface();
    // On the thread that constructed it.
    ~WMIInterface();
    WMIInterface(const WMIInterface&) = delete;
    WMIInterface& operator=(const WMIInterface&) = delete;

    // Connects to WMI. The code of the step that failed, or of the last one; nothing is kept after a failure.
    HRESULT DoInit();

    // Fills Version and OSType; what can't be read is left as it is. The query's code, or E_POINTER for null.
    // Any thread; waits for WMI without a limit.
    HRESULT GetOSinformation(OsInfo* pDestBuffer);

    // Lets go of WMI. A query that runs keeps its own hold on it. Any thread.
    void Release();

  private:
    HRESULT Connect();
    HRESULT QueryOperatingSystem(UniqueInterface<IEnumWbemClassObject>& objects);
    UniqueInterface<IWbemServices> Services();

    bool m_bComInitialized = false;
    std::mutex m_mutex;  // a stop may come while a report asks
    UniqueInterface<IWbemLocator> m_pLocator;
    UniqueInterface<IWbemServices> m_pServices;
};
