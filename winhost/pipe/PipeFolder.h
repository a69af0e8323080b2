// The pipes of a PC: a folder for each name, below the PC's root, where all of its processes find them.
//
// An instance is a numbered file in that folder, which its server keeps locked for as long as it lives, and
// beside it, while the instance listens, a socket. A process holds the folder's lock while it reads or
// changes the folder, so that a client has an instance for itself. What a killed process left there is swept
// away by the next look.
#pragma once

#include <string>
#include <vector>

#include <minwindef.h>

#include "testbed/Descriptor.h"

namespace winhost {

// What a server says of its instance to those who come.
struct PipeTerms {
    uint32_t maxInstances;
    uint32_t outBuffer, inBuffer;  // bytes
    uint32_t opensToAll;
    uint32_t inbound;  // a pipe of bytes from the client alone; else of messages both ways
    char user[260];    // the server's
};

class PipeFolder {
  public:
    // ERROR_FILE_NOT_FOUND for a pipe that never had an instance, unless `make` is given; ERROR_INVALID_NAME
    // for what can be no pipe's name.
    static DWORD Open(const std::string& pipeName, bool make, PipeFolder& folder);

    // Locks the file of a new instance and has it listen. ERROR_ACCESS_DENIED when the terms differ from
    // those of the other instances, ERROR_PIPE_BUSY when there is no room for one more.
    DWORD Add(const PipeTerms& terms, uint32_t& number, testbed::Descriptor& file,
              testbed::Descriptor& listener);
    void Remove(uint32_t number);

    // The listening socket of an instance.
    DWORD Listen(uint32_t number, testbed::Descriptor& listener);
    void StopListening(uint32_t number);

    // A connection to an instance that listened until now: ERROR_FILE_NOT_FOUND without instances,
    // ERROR_ACCESS_DENIED when the pipe is not open to `user`, or not for this access, ERROR_PIPE_BUSY when
    // none listens.
    DWORD Claim(const std::string& user, DWORD access, PipeTerms& terms, testbed::Descriptor& connection);

  private:
    class Lock;
    struct Instance {
        uint32_t number;
        PipeTerms terms;
    };

    // The caller holds the lock of the folder in these.
    std::vector<Instance> Instances();
    bool ReadTerms(uint32_t number, PipeTerms& terms);
    bool Listens(uint32_t number) const;
    void Sweep(uint32_t number);
    DWORD Bind(uint32_t number, testbed::Descriptor& listener);
    // Short enough for a socket's name, however deep the folder lies.
    std::string SocketPath(uint32_t number) const;
    std::string Path() const;

    testbed::Descriptor m_folder;
};

bool IsPipeName(const std::string& name);

}  // namespace winhost
