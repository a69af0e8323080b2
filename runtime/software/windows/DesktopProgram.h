// Starts a program on the desktop of the user who sits at the machine.
#pragma once

#include <string>

#include "runtime/software/windows/Handle.h"

namespace luxrt {

// Whose rights the program has.
enum class Rights {
    // Those of the user at the machine; without one, those of this process.
    User,
    // Those of this process, which as a service can also read the lock screen.
    Own,
};

class DesktopProgram {
  public:
    // The session whose screen is the machine's, and a token for a process there. A failure to get the token
    // of the user leaves one of this process.
    DesktopProgram(DWORD session, Rights rights);

    // The user that the program runs as, as a text of the security descriptor language. Empty on failure.
    std::wstring User() const;
    // Starts it suspended, in a job that ends it with the last handle to the job. Returns an error code.
    DWORD Start(const std::wstring& program, const std::wstring& arguments);

    HANDLE Process() const { return m_process.get(); }

    // The session that is shown on the machine's screen, and that of this process.
    static DWORD ConsoleSession();
    static DWORD OwnSession();

  private:
    DWORD Create(const std::wstring& program, std::wstring commandLine, PROCESS_INFORMATION& created);

    // Null: the program runs as this process, in its session.
    UniqueHandle m_token;
    UniqueHandle m_job;
    UniqueHandle m_process;
};

}  // namespace luxrt
