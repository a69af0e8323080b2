#include "KVMDisplayMgrLib/src/LuxTrace.h"

#include <cstdarg>
#include <cstdio>

const char* LuxTrace::ResultText(lux::LUX_RESULT result) const {
    lux::LUXTrace* const trace = m_factory.GetTrace();
    return trace ? trace->GetResultText(result) : "";
}

const char* LuxTrace::FormatName(lux::LUXSurfaceFormat format) const {
    lux::LUXTrace* const trace = m_factory.GetTrace();
    return trace ? trace->GetSurfaceFormatName(format) : "";
}

std::string LuxTrace::FailureHead(lux::LUX_RESULT result) const {
    const char* const text = ResultText(result);
    return "LUX_ERROR " + std::to_string(result) + " : " + (text ? text : "(null)") + ": ";
}

std::string LuxTrace::AssertionHead(const char* condition) {
    const std::string head = "Assertion failed:";
    return *condition ? head + condition + ": " : head;
}

void LuxTrace::WriteFormatted(const std::string& head, int line, lux::LUXTraceLevel level, const char* format,
                              ...) const {
    lux::LUXTrace* const trace = m_factory.GetTrace();
    if (!trace) return;
    char message[logging::kMessageSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    if (length >= 0) trace->TraceText(m_file, line, level, m_scope, (head + message).c_str());
}
