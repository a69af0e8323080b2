// The helper program of a packaged service on the run's PC: a process that the service starts, and a thread
// that plays its end of the Wi-Fi pipe.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "testbed/Descriptor.h"

class ReaderProgram {
  public:
    // Writes the program to this path of the PC. Each process that is started without an argument stays until
    // its record has been read, or this process ends; with one, it ends at once.
    ReaderProgram(const std::string& windowsPath, std::string record);
    ~ReaderProgram();
    ReaderProgram(const ReaderProgram&) = delete;
    ReaderProgram& operator=(const ReaderProgram&) = delete;

  private:
    void Run();
    void Deliver();

    const std::string m_record;
    const testbed::Descriptor m_processes;  // a line for each one that may end
    std::atomic<bool> m_leaves{false};
    std::thread m_thread;
};
