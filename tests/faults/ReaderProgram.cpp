#include "tests/faults/ReaderProgram.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <utility>

#include "base/Handles.h"
#include "tests/faults/Injector.h"
#include "wifi/ReaderPipes.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr char kPipeOfProcesses[] = "C:\\reader";

// Open for both directions, so that no process waits for the other end, and all of them read the end of the
// file when this process has gone.
int OpenPipeOfProcesses() {
    const std::string path = winhost::Pc::Instance().HostPath(kPipeOfProcesses);
    mkfifo(path.c_str(), S_IRUSR | S_IWUSR);
    return open(path.c_str(), O_RDWR | O_CLOEXEC);
}

}  // namespace

ReaderProgram::ReaderProgram(const std::string& windowsPath, std::string record)
    : m_record(std::move(record)), m_processes(OpenPipeOfProcesses()) {
    const std::filesystem::path path = winhost::Pc::Instance().HostPath(windowsPath);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n[ \"$1\" ] || read line < C:/reader\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    m_thread = std::thread([this] { Run(); });
}

ReaderProgram::~ReaderProgram() {
    m_leaves = true;
    m_thread.join();
}

void ReaderProgram::Run() {
    const OutsideService outside;
    while (!m_leaves) {
        Deliver();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// A connection that the service closes early keeps its process, as a program that hangs.
void ReaderProgram::Deliver() {
    const UniqueFileHandle pipe(
        CreateFileA(kWiFiPipeName, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    DWORD size = 0;
    if (!pipe ||
        !WriteFile(pipe.Get(), m_record.data(), static_cast<DWORD>(m_record.size()), &size, nullptr) ||
        !FlushFileBuffers(pipe.Get()))
        return;
    // Where this fails, the process stays, too.
    [[maybe_unused]] const ssize_t written = write(m_processes.Get(), "\n", 1);
}
