#include "firmware/web/PageFiles.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace mpm::web {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kVncClient = "novnc/";
constexpr uintmax_t kLargestFile = 8u << 20;

const char* TypeOf(const fs::path& path) {
    static const std::map<std::string, const char*> types = {
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
    };
    const auto found = types.find(path.extension().string());
    return found == types.end() ? nullptr : found->second;
}

// Neither a dot in front, which "." and ".." have too, nor anything that a file system could take otherwise.
bool IsPlain(const std::string& name) {
    bool atStart = true;
    for (const char c : name) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '-' || c == '_' || ((c == '.' || c == '/') && !atStart);
        if (!plain) return false;
        atStart = c == '/';
    }
    return !atStart;
}

}  // namespace

std::optional<PageFile> PageFiles::Find(const std::string& name) const {
    if (name.empty()) return Find("index.html");
    if (!IsPlain(name)) return std::nullopt;
    const bool isVnc = name.starts_with(kVncClient);
    const std::string inVnc = isVnc ? name.substr(kVncClient.size()) : "";
    if (isVnc && !inVnc.starts_with("core/") && !inVnc.starts_with("vendor/")) return std::nullopt;
    if (!isVnc && name.find('/') != std::string::npos) return std::nullopt;
    const fs::path path = isVnc ? m_vncClient / inVnc : m_page / name;
    std::error_code error;
    const char* type = TypeOf(path);
    if (!type || !fs::is_regular_file(path, error)) return std::nullopt;
    return PageFile{path, type};
}

bool PageFiles::HasVncClient() const {
    return Find(std::string(kVncClient) + "core/rfb.js").has_value();
}

std::string ReadPageFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file || fs::file_size(path) > kLargestFile) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace mpm::web
