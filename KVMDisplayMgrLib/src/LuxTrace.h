// Writes to the runtime's trace. Nothing is written while no runtime is loaded.
#pragma once

#include <initializer_list>
#include <string>

#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "base/Log.h"
#include "lux/Types.h"

class LuxTrace {
  public:
    // `file` and `scope` must outlive this object, and stand in front of each message.
    LuxTrace(const LUXFactoryHelper& factory, const char* file, const char* scope)
        : m_factory(factory), m_file(file), m_scope(scope) {}

    // The line is that of the caller, and the format is checked as for LogInfo.
    template <class... Args>
    void Write(int line, lux::LUXTraceLevel level,
               const logging::Format<std::type_identity_t<Args>...>& format, const Args&... args) const {
        WriteWithHead("", line, level, format.View(), {logging::Held(args)...});
    }
    template <class... Args>
    void Info(int line, const logging::Format<std::type_identity_t<Args>...>& format,
              const Args&... args) const {
        WriteWithHead("", line, lux::LUX_TRACE_INFO, format.View(), {logging::Held(args)...});
    }
    // An error, with the result of a call and its text in front.
    template <class... Args>
    void Failure(int line, lux::LUX_RESULT result,
                 const logging::Format<std::type_identity_t<Args>...>& format, const Args&... args) const {
        WriteWithHead(FailureHead(result), line, lux::LUX_TRACE_ERROR, format.View(),
                      {logging::Held(args)...});
    }
    // An error, with the condition that does not hold in front, unless that is empty.
    template <class... Args>
    void Assertion(int line, const char* condition,
                   const logging::Format<std::type_identity_t<Args>...>& format, const Args&... args) const {
        WriteWithHead(AssertionHead(condition), line, lux::LUX_TRACE_ERROR, format.View(),
                      {logging::Held(args)...});
    }

    // The runtime's texts, or an empty one without a runtime.
    const char* ResultText(lux::LUX_RESULT result) const;
    const char* FormatName(lux::LUXSurfaceFormat format) const;

  private:
    std::string FailureHead(lux::LUX_RESULT result) const;
    static std::string AssertionHead(const char* condition);
    void WriteWithHead(const std::string& head, int line, lux::LUXTraceLevel level,
                       const logging::FormatView& format, std::initializer_list<logging::Value> values) const;

    const LUXFactoryHelper& m_factory;
    const char* m_file;
    const char* m_scope;
};
