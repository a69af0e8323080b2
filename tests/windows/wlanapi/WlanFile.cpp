#include "tests/windows/wlanapi/WlanFile.h"

#include <sstream>

#include "tests/windows/support/FilesBeside.h"

WlanFile WlanFile::Read() {
    WlanFile file;
    std::istringstream lines(ReadBeside("wlan.txt").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        // "fail CALL" is one key.
        const size_t blank = line.find(' ', line.starts_with("fail ") ? 5 : 0);
        if (blank != std::string::npos) file.m_values[line.substr(0, blank)] = line.substr(blank + 1);
    }
    return file;
}

std::string WlanFile::Text(const std::string& key) const {
    const auto found = m_values.find(key);
    return found == m_values.end() ? "" : found->second;
}

DWORD WlanFile::Number(const std::string& key) const {
    const std::string text = Text(key);
    return text.empty() ? 0 : static_cast<DWORD>(std::stoul(text));
}

std::optional<std::string> ReadProfile(const std::string& name) {
    return ReadBeside(name + ".xml");
}

void RecordCall(const std::string& call, DWORD error) {
    AppendLineBeside("wlan.calls", call + " " + std::to_string(error));
}
