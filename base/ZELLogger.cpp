#include "base/ZELLogger.h"

#include <share.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

#include "base/FileGuard.h"
#include "base/FilesystemPath.h"
#include "base/LogLine.h"

ZELLogger* g_pLogger = nullptr;

namespace {

// A Win32 mutex reports the death of its owner. The process then ends.
class LogLock {
  public:
    explicit LogLock(HANDLE mutex) : m_mutex(mutex) {
        while (const DWORD result = WaitForSingleObject(m_mutex, INFINITE))
            if (result == WAIT_ABANDONED) ExitProcess(0);
    }
    ~LogLock() { ReleaseMutex(m_mutex); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

  private:
    HANDLE m_mutex;
};

void WriteAndFlush(FILE* file, const char* line) {
    std::fprintf(file, "%s", line);
    std::fflush(file);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

int ToInt(const std::string& digits) {
    int number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (result.ec == std::errc::result_out_of_range) throw std::out_of_range("stoi argument out of range");
    if (result.ec != std::errc()) throw std::invalid_argument("invalid stoi argument");
    return number;
}

}  // namespace

ZELLogger* ZELLogger::Instance() {
    if (!g_pLogger) g_pLogger = new (std::nothrow) ZELLogger;
    return g_pLogger;
}

ZELLogger::ZELLogger() : m_hMutex(CreateMutexA(nullptr, FALSE, nullptr)) {
    if (!m_hMutex) ExitProcess(0);
}

ZELLogger::~ZELLogger() {
    CloseLog();
    CloseHandle(m_hMutex);
}

// Each level text has 7 characters.
void ZELLogger::LogInfo(const char* tag, const char* message) {
    WriteLine(tag, message, "INFO:  ");
}
void ZELLogger::LogWarn(const char* tag, const char* message) {
    WriteLine(tag, message, "WARN:  ");
}
void ZELLogger::LogError(const char* tag, const char* message) {
    WriteLine(tag, message, "ERROR: ");
}
void ZELLogger::LogDebug(const char*, const char*) {}
void ZELLogger::LogTrace(const char*, const char*) {}

bool ZELLogger::OpenLog(const std::string& baseName, const std::string& filePath, const std::string& folder,
                        uint64_t maxFileSize, uint32_t rotationMode) {
    LogLock lock(m_hMutex);
    if (m_pFile) Close();
    m_BaseName = baseName;
    m_LogFilePath = filePath;
    m_LogFolder = folder;
    m_MaxFileSize = maxFileSize;
    m_RotationMode = rotationMode;
    m_bOpen = Open();
    return m_bOpen;
}

void ZELLogger::CloseLog() {
    LogLock lock(m_hMutex);
    if (!m_bOpen) return;
    if (m_pFile) Close();
    m_bOpen = false;
}

// The share mode lets a reader follow the log while it grows. A new run appends.
bool ZELLogger::Open() {
    const FileGuard guard(m_LogFilePath);
    m_pFile = guard ? _fsopen(m_LogFilePath.c_str(), "a+", _SH_DENYNO) : nullptr;
    OutputDebugStringA(
        ((m_pFile ? "Log file is: " : "ERROR: Unable to open log file: ") + m_LogFilePath + "\n").c_str());
    if (m_pFile && guard.HasReplaced()) {
        // The caller holds the lock, so the line is written here.
        FixedText<kMaxLine + 1> line;
        AssembleLogLine(line, "ZELService", (m_LogFilePath + kReplacedFile).c_str(), "WARN:  ");
        WriteAndFlush(m_pFile, line.Text());
    }
    return m_pFile != nullptr;
}

void ZELLogger::Close() {
    std::fflush(m_pFile);
    std::fclose(m_pFile);
    m_pFile = nullptr;
}

void ZELLogger::WriteLine(const char* tag, const char* message, std::string_view level) {
    if (!m_bOpen) return;
    FixedText<kMaxLine + 1> line;
    AssembleLogLine(line, tag, message, level);
    LogLock lock(m_hMutex);
    if (m_bOpen) {
        WriteToFile(line.Text());
    } else {
        OutputDebugStringA(line.Text());
    }
}

void ZELLogger::WriteToFile(const char* line) {
    if (m_pFile) {
        // The size is checked before the write, so the file may exceed the limit by one line.
        _fseeki64(m_pFile, 0, SEEK_END);
        const long long position = _ftelli64(m_pFile);
        if (position > 0 && static_cast<uint64_t>(position) > m_MaxFileSize) Rotate();
    } else {
        // An earlier rotation could not open the file again.
        Open();
    }
    if (!m_pFile) {
        OutputDebugStringA(line);
        return;
    }
    WriteAndFlush(m_pFile, line);
}

void ZELLogger::Rotate() {
    Close();
    try {
        MoveToBackup();
    } catch (const std::exception& exception) {
        // A failed rotation raises nothing: later lines are appended to the existing file.
        OutputDebugStringA(exception.what());
    }
    Open();
}

void ZELLogger::MoveToBackup() {
    std::string backup = m_LogFilePath;
    if (m_RotationMode == kOneBackup) {
        backup.back() = '_';
        DeleteFileA(backup.c_str());
    } else {
        ScanBackupIndex();
        backup = m_LogFolder + "\\" + m_BaseName + std::to_string(m_NextBackupIndex) + ".log";
    }
    MoveFileA(m_LogFilePath.c_str(), backup.c_str());
}

void ZELLogger::ScanBackupIndex() {
    namespace fs = std::filesystem;
    const fs::path folder = FilesystemPath(m_LogFolder);
    int maximum = -1;
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    if (error) throw fs::filesystem_error("directory_iterator::directory_iterator", folder, error);
    while (entry != fs::directory_iterator()) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with(m_BaseName) && name.find(".log") != std::string::npos) {
            const int index = ParseBackupIndex(name);
            // A name without a number resets the count.
            maximum = index == -1 ? 0 : std::max(maximum, index);
        }
        entry.increment(error);
        if (error) throw fs::filesystem_error("directory_iterator::operator++", folder, error);
    }
    m_NextBackupIndex = maximum + 1;
}

int ZELLogger::ParseBackupIndex(const std::string& name) const {
    constexpr size_t kPrefix = 3;  // of "zel", whatever the base name is
    const size_t base = name.find(m_BaseName);
    const size_t end = name.find(".log");
    if (base == std::string::npos || end == std::string::npos) return -1;
    const size_t start = base + kPrefix;
    if (end <= start) return 0;
    const std::string number = name.substr(start, end - start);
    if (!std::all_of(number.begin(), number.end(), IsDigit)) return -1;
    return ToInt(number);
}
