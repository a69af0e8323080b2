#include "tests/faults/PipeProgram.h"

#include <chrono>
#include <utility>

#include "base/Handles.h"
#include "tests/faults/Injector.h"

namespace {

UniqueFileHandle Open(const char* pipe) {
    return UniqueFileHandle(
        CreateFileA(pipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

void Write(HANDLE pipe, const std::string& message) {
    DWORD size = 0;
    WriteFile(pipe, message.data(), static_cast<DWORD>(message.size()), &size, nullptr);
}

bool Read(HANDLE pipe) {
    char message[512];
    DWORD size = 0;
    return ReadFile(pipe, message, sizeof message, &size, nullptr) || GetLastError() == ERROR_MORE_DATA;
}

}  // namespace

PipeProgram::PipeProgram(const char* pipe, Talk talk)
    : m_thread([this, pipe, talk = std::move(talk)] { Run(pipe, talk); }) {}

PipeProgram::~PipeProgram() {
    m_leaves = true;
    m_thread.join();
}

PipeProgram::Talk PipeProgram::Answers(std::string answer) {
    return [answer = std::move(answer)](HANDLE pipe) {
        if (Read(pipe)) Write(pipe, answer);
    };
}

PipeProgram::Talk PipeProgram::Reports(std::string message) {
    return [message = std::move(message)](HANDLE pipe) {
        Write(pipe, message);
        while (Read(pipe)) {
        }
    };
}

void PipeProgram::Run(const char* name, const Talk& talk) {
    const OutsideService outside;
    UniqueFileHandle pipe;
    while (!m_leaves && !pipe) {
        pipe = Open(name);
        if (!pipe) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!pipe) return;
    DWORD mode = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr);
    talk(pipe.Get());
    while (!m_leaves)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
