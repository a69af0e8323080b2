// What the firmware asks for: one message, one command, one handler.
#pragma once

#include <cstdint>

class ZELService;

// Thread body of m_pMBDriverReadThreadObj.
void ReadFromMailBoxDriverThread(ZELService* service);

// Read thread. Dispatches one message of bytesRead bytes: payload, command number, one byte that is not
// looked at. Blocks the loop for as long as the command's handler takes. A handler may use the buffer until
// it returns.
void ProcessRead(ZELService* service, uint32_t bytesRead, const uint8_t* buffer);
