// A token behind a handle: a session, and what the handle may be used for.
#pragma once

#include <atomic>

#include <winbase.h>

#include "winhost/core/HandleTable.h"

namespace winhost {

class Token : public Object {
  public:
    enum class Origin { OwnProcess, OtherProcess, Duplicate };

    Token(Origin origin, DWORD access, DWORD session)
        : m_origin(origin), m_access(access), m_session(session) {}
    // A duplicate.
    Token(const Token& from, DWORD access) : Token(Origin::Duplicate, access, from.Session()) {}

    bool Allows(DWORD access) const { return (m_access & access) == access; }
    bool IsOwn() const { return m_origin == Origin::OwnProcess; }
    bool IsDuplicate() const { return m_origin == Origin::Duplicate; }
    DWORD Session() const { return m_session; }
    void SetSession(DWORD session) { m_session = session; }

  private:
    const Origin m_origin;
    const DWORD m_access;
    std::atomic<DWORD> m_session;
};

}  // namespace winhost
