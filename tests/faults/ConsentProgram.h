// The program that asks the person at the PC, on the other end of the service's pipe.
#pragma once

#include <atomic>
#include <string>
#include <thread>

class ConsentProgram {
  public:
    // Tries to connect until there is a pipe or the object goes, reads the question, and says the answer.
    explicit ConsentProgram(std::string answer);
    ~ConsentProgram();

  private:
    void Run();

    const std::string m_answer;
    std::atomic<bool> m_leaves{false};
    std::thread m_thread;
};
