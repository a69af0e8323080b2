// The program on the user's desktop, and the memory that it writes its pictures to.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "runtime/software/SharedPicture.h"
#include "runtime/software/windows/DesktopProgram.h"

namespace luxrt {

class CaptureHelper {
  public:
    // Returns null when the program cannot be started, and traces the reason.
    static std::unique_ptr<CaptureHelper> Start(int64_t monitor, size_t capacity, DWORD session,
                                                Rights rights);
    CaptureHelper(const CaptureHelper&) = delete;
    CaptureHelper& operator=(const CaptureHelper&) = delete;
    // Ends the program.
    ~CaptureHelper();

    bool Running() const;
    void Request();
    // Waits a few milliseconds for the answer to the request.
    bool AwaitAnswer();
    const SharedPicture& Picture() const { return *m_picture; }

  private:
    CaptureHelper(DWORD session, Rights rights) : m_program(session, rights) {}
    DWORD Prepare(size_t capacity);

    // Much longer than a small picture takes, and shorter than a frame.
    static constexpr DWORD kPatienceMs = 4;

    DesktopProgram m_program;
    std::wstring m_name;
    UniqueHandle m_requested;
    UniqueHandle m_answered;
    UniqueHandle m_memory;
    UniqueView m_view;
    std::optional<SharedPicture> m_picture;
};

}  // namespace luxrt
