// A program on the other end of one of the service's pipes.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

class PipeProgram {
  public:
    using Talk = std::function<void(HANDLE pipe)>;

    // Tries to connect until there is a pipe or the object goes, talks, and stays connected.
    PipeProgram(const char* pipe, Talk talk);
    ~PipeProgram();

    // Reads the question to the person and says the answer.
    static Talk Answers(std::string answer);
    // Says the message, and reads until the service hangs up.
    static Talk Reports(std::string message);

  private:
    void Run(const char* pipe, const Talk& talk);

    std::atomic<bool> m_leaves{false};
    std::thread m_thread;
};
