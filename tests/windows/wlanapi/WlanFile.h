// The files by which a test describes the PC's WLAN service and reads what was called. They are in the folder
// of this DLL.
//
// wlan.txt is replaced as a whole. Each line is a key and its value:
//
//     run 1              number of the service's run, 0 while it is stopped; a new one ends all clients
//     state 1            of the interface: 1 connected, 4 disconnected
//     profile office     of the connected network; its XML is in office.xml
//     ssid office        the bytes of its SSID
//     auth 7             DOT11_AUTH_ALGORITHM
//     cipher 4           DOT11_CIPHER_ALGORITHM
//     channel 36         number of the channel
//     frequency 5180000  in kHz; 0 for a network without a BSS
//     burst 3            a new number sends the notifications of the next line
//     notify 9 10        their codes, of WLAN_NOTIFICATION_SOURCE_ACM
//     fail CALL 1168     makes a call fail
//
// wlan.calls gets one line for each call: its name and its error.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <map>
#include <optional>
#include <string>

// What wlan.txt contains at one moment. Without the file the service is stopped.
class WlanFile {
  public:
    static WlanFile Read();

    std::string Text(const std::string& key) const;  // empty without the key
    DWORD Number(const std::string& key) const;

  private:
    std::map<std::string, std::string> m_values;
};

// None when there is no such profile.
std::optional<std::string> ReadProfile(const std::string& name);

void RecordCall(const std::string& call, DWORD error);
