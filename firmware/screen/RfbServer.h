// Serves the screen to one viewer as RFB over a connected socket, on a thread of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "firmware/screen/Picture.h"
#include "firmware/screen/ViewerInput.h"
#include "testbed/Descriptor.h"

struct _rfbScreenInfo;
struct _rfbClientRec;

namespace mpm {

class RfbServer {
  public:
    struct Counts {
        uint64_t keys = 0, pointerEvents = 0, dropped = 0, updates = 0;
    };
    // Makes the input on the server's thread, when it is first needed; throws std::runtime_error when it
    // cannot.
    using MakeInput = std::function<std::unique_ptr<ViewerInput>()>;

    // `news` is called on the thread when it has a note, and when it has ended.
    RfbServer(testbed::Descriptor socket, MakeInput makeInput, std::function<void()> news);
    ~RfbServer();

    // The viewer is answered when the first picture is there.
    void Show(std::shared_ptr<const Picture> picture);
    // Ends the connection, without waiting for the thread.
    void Stop();
    bool Finished() const { return m_finished; }
    std::vector<std::string> CollectNotes();
    Counts Count() const;

  private:
    using Pixels = std::vector<uint8_t>;
    void Main();
    void Serve();
    bool AwaitNews();
    std::shared_ptr<const Picture> TakeNext();
    void Update(const std::shared_ptr<const Picture>& picture);
    void Resize(const Picture& picture);
    void ConvertChanges(const Picture& picture);
    void Act(const std::function<void(ViewerInput&)>& act);
    void Note(const std::string& text);
    static RfbServer& Of(_rfbClientRec* client);

    testbed::Descriptor m_socket;  // the library closes its own copy
    testbed::Descriptor m_wake;    // an eventfd
    const MakeInput m_makeInput;
    const std::function<void()> m_news;

    // Of the thread alone.
    _rfbScreenInfo* m_screen = nullptr;
    int m_client = -1;  // the library's copy of the socket
    Pixels m_pixels;
    std::shared_ptr<const Picture> m_shown;
    std::unique_ptr<ViewerInput> m_input;
    std::chrono::steady_clock::time_point m_nextTry;

    std::atomic<bool> m_stopping = false, m_finished = false;
    std::atomic<uint64_t> m_keys = 0, m_pointerEvents = 0, m_dropped = 0, m_updates = 0;
    std::mutex m_mutex;  // guards what follows
    std::shared_ptr<const Picture> m_next;
    std::vector<std::string> m_notes;
    std::thread m_thread;
};

}  // namespace mpm
