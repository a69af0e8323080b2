// Dispatches the firmware's messages: one message, one command, one handler.
#pragma once

#include <cstdint>

class ZELService;

// Thread body of m_pMBDriverReadThreadObj.
void ReadFromMailBoxDriverThread(ZELService* service);

// Read thread. Dispatches one message of bytesRead bytes: payload, command number, one byte that is ignored.
// Blocks the loop until the command's handler returns. A handler may use the buffer until then.
void ProcessRead(ZELService* service, uint32_t bytesRead, const uint8_t* buffer);
