// The Unix socket by which other processes play Windows to this one: a request is one line of JSON, its
// answer another.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace winhost {

class ControlServer {
  public:
    static ControlServer& Instance();

    // Listens at this path from now on, in place of an earlier one; with an empty path nowhere. The socket's
    // file appears when clients can connect. Throws std::system_error.
    void Serve(const std::string& path);

  private:
    struct AtExit;

    ControlServer() = default;
    void Listen(const std::string& path);
    void Stop();
    void AcceptClients(int listener);
    void Talk(int client);
    bool AnswerLine(int client, const std::string& line);
    void AwaitAnswers();

    std::mutex m_serving;  // one change of the path at a time
    std::string m_path;
    int m_listener = -1;
    std::thread m_acceptor;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_clients = 0;
    int m_answering = 0;  // requests that have come and whose answer is not yet out
};

}  // namespace winhost
