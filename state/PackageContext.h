// How the service was installed. The package's identity is read once, before any subsystem starts.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

struct PackageContext {
    std::atomic<uint8_t> m_bRecoveryConfigDone{1};  // 0 while the recovery environment is configured
    std::atomic<uint8_t> m_bIsPackage{0};
    std::string m_packageFullName;  // empty unless packaged
    std::string m_packagePath;      // the package's installed folder, without a final backslash

    // True when the service runs from a package, false in a classic install.
    bool GetIsPackage() const { return m_bIsPackage != 0; }
};
