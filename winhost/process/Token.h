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
    Token(const Token& from, DWORD access, TOKEN_TYPE type, SECURITY_IMPERSONATION_LEVEL level)
        : m_origin(Origin::Duplicate),
          m_access(access),
          m_type(type),
          m_level(level),
          m_session(from.m_session.load()) {}

    bool Allows(DWORD access) const { return (m_access & access) == access; }
    DWORD Access() const { return m_access; }
    bool IsOwn() const { return m_origin == Origin::OwnProcess; }
    bool IsDuplicate() const { return m_origin == Origin::Duplicate; }
    TOKEN_TYPE Type() const { return m_type; }
    // Of an impersonation token.
    SECURITY_IMPERSONATION_LEVEL Level() const { return m_level; }
    DWORD Session() const { return m_session; }
    void SetSession(DWORD session) { m_session = session; }

  private:
    const Origin m_origin;
    const DWORD m_access;
    const TOKEN_TYPE m_type = TokenPrimary;
    const SECURITY_IMPERSONATION_LEVEL m_level = SecurityImpersonation;
    std::atomic<DWORD> m_session;
};

}  // namespace winhost
