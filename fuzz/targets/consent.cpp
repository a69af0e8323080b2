// The pipe of the consent question: what the person's program gets, and what the service takes from it.
#include <winsock2.h>
#include <windows.h>

#include <string>
#include <thread>

#include "base/Handles.h"
#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "session/ConsentPipe.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr size_t kLongestAnswer = 511;
constexpr int kMostAnswers = 3;

// As the service has to take one: cut at the first NUL, line feed or carriage return.
std::string Cut(const std::string& text) {
    return text.substr(0, text.find_first_of(std::string("\0\n\r", 3)));
}

struct PcWithPipes {
    PcWithPipes() {
        winhost::PcDescription pc;
        pc.root = fuzz::SocketFolder() + "/pc";
        winhost::Pc::Instance().Reset(pc);
    }
};

// The program's end, which never blocks here: the service's end is read as soon as something is said.
class Person {
  public:
    Person()
        : m_pipe(CreateFileA("\\\\.\\pipe\\userconsentfeature", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                             OPEN_EXISTING, 0, nullptr)) {
        fuzz::Require(bool(m_pipe), "the person's program finds the pipe");
        DWORD mode = PIPE_READMODE_MESSAGE;
        SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr);
    }
    HANDLE Pipe() const { return m_pipe.Get(); }
    void Leave() { m_pipe.Reset(); }

  private:
    UniqueFileHandle m_pipe;
};

}  // namespace

FUZZ_TARGET(consent) {
    static const PcWithPipes pc;
    fuzz::Input from(input);
    ConsentPipe service;
    fuzz::Require(service.Create(), "the pipe can be made");
    Person person;
    fuzz::Require(service.AwaitClient(), "the program is announced");
    for (int answers = 0; answers < kMostAnswers && !from.AtEnd(); ++answers) {
        const std::string said = fuzz::TextOf(from.LongBlock());
        const bool isWhole = said.size() <= kLongestAnswer;
        std::string taken;
        // A message waits until it is read, and a long one until its rest is.
        std::thread speaker([&] {
            DWORD written = 0;
            WriteFile(person.Pipe(), said.data(), static_cast<DWORD>(said.size()), &written, nullptr);
        });
        for (size_t left = said.size(), first = 1;; first = 0) {
            const std::string text = service.Read();
            if (first) taken = text;
            if (left <= kLongestAnswer) break;
            left -= kLongestAnswer;
        }
        speaker.join();
        fuzz::Require(taken.size() <= kLongestAnswer, "an answer is bounded");
        fuzz::Require(taken == (isWhole ? Cut(said) : std::string()), "an answer is what was said, or none",
                      taken);
    }
    person.Leave();
    fuzz::Require(service.Read().empty(), "a program that has gone says nothing");
    service.Close();
}
