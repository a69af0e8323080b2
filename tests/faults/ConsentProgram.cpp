#include "tests/faults/ConsentProgram.h"

#include <winsock2.h>
#include <windows.h>

#include <chrono>
#include <utility>

#include "base/Handles.h"
#include "tests/faults/Injector.h"

namespace {

UniqueFileHandle Open() {
    return UniqueFileHandle(CreateFileA("\\\\.\\pipe\\userconsentfeature", GENERIC_READ | GENERIC_WRITE, 0,
                                        nullptr, OPEN_EXISTING, 0, nullptr));
}

}  // namespace

ConsentProgram::ConsentProgram(std::string answer)
    : m_answer(std::move(answer)), m_thread([this] { Run(); }) {}

ConsentProgram::~ConsentProgram() {
    m_leaves = true;
    m_thread.join();
}

void ConsentProgram::Run() {
    const OutsideService outside;
    UniqueFileHandle pipe;
    while (!m_leaves && !pipe) {
        pipe = Open();
        if (!pipe) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!pipe) return;
    DWORD mode = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr);
    char question[512];
    DWORD size = 0;
    if (ReadFile(pipe.Get(), question, sizeof question, &size, nullptr))
        WriteFile(pipe.Get(), m_answer.data(), static_cast<DWORD>(m_answer.size()), &size, nullptr);
    while (!m_leaves)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
