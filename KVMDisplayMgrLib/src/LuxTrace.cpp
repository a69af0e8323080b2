#include "KVMDisplayMgrLib/src/LuxTrace.h"

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

void LuxTrace::WriteWithHead(const std::string& head, int line, lux::LUXTraceLevel level,
                             const logging::FormatView& format,
                             std::initializer_list<logging::Value> values) const {
    lux::LUXTrace* const trace = m_factory.GetTrace();
    if (!trace) return;
    trace->TraceText(m_file, line, level, m_scope, (head + Assemble(format, values).Text()).c_str());
}
