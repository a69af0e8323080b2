// The service's only diagnostic channel. It appends lines to a file, each with process, memory, thread and
// time, and starts a new file at a size limit. Every line is on disk when its call returns.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

class ZELLogger {
  public:
    static constexpr uint32_t kOneBackup = 0;        // zel.log and zel.lo_
    static constexpr uint32_t kNumberedBackups = 1;  // zel.log, zel0.log, zel1.log, ...
    static constexpr size_t kMaxLine = 1024;         // bytes, line break included

    // Returns the process's logger. The first call creates it; it returns null when there is no memory for
    // it. The first call comes before any thread starts.
    static ZELLogger* Instance();

    ZELLogger();
    ~ZELLogger();
    ZELLogger(const ZELLogger&) = delete;
    ZELLogger& operator=(const ZELLogger&) = delete;

    // Any thread. Each call writes one line, or nothing while the file is not open. Failures are ignored.
    void LogInfo(const char* tag, const char* message);
    void LogWarn(const char* tag, const char* message);
    void LogError(const char* tag, const char* message);
    // These two write nothing.
    void LogDebug(const char* tag, const char* message);
    void LogTrace(const char* tag, const char* message);

    // Opens filePath for appending. maxFileSize is in bytes. Returns true when the file is open.
    bool OpenLog(const std::string& baseName, const std::string& filePath, const std::string& folder,
                 uint64_t maxFileSize, uint32_t rotationMode);
    // Closes the file. Later lines are dropped.
    void CloseLog();

    // Sets the number of the next numbered backup to one above the highest in the folder. Throws
    // std::filesystem::filesystem_error, and the exceptions of ParseBackupIndex.
    void ScanBackupIndex();
    // Returns the number in a backup's file name, 0 for the log itself, and -1 for any other file. Throws
    // std::out_of_range.
    int ParseBackupIndex(const std::string& name) const;
    int NextBackupIndex() const { return m_NextBackupIndex; }

  private:
    void WriteLine(const char* tag, const char* message, std::string_view level);
    void WriteToFile(const char* line);
    void Rotate();
    void MoveToBackup();
    bool Open();
    void Close();

    HANDLE m_hMutex;
    std::atomic<bool> m_bOpen{false};
    std::string m_LogFilePath;
    FILE* m_pFile = nullptr;
    uint64_t m_MaxFileSize = 0x200000;
    uint32_t m_RotationMode = kOneBackup;
    int m_NextBackupIndex = 0;
    std::string m_LogFolder;
    std::string m_BaseName;
};

extern ZELLogger* g_pLogger;
