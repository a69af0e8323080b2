// The files that a browser may have: those of the page, and the VNC client's.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace mpm::web {

struct PageFile {
    std::filesystem::path path;
    const char* type;  // of its content
};

class PageFiles {
  public:
    PageFiles(std::filesystem::path page, std::filesystem::path vncClient)
        : m_page(std::move(page)), m_vncClient(std::move(vncClient)) {}

    // `name` is the path below the token. Nothing for a folder, for a name that leads out of the folders, and
    // for what a page does not consist of.
    std::optional<PageFile> Find(const std::string& name) const;
    bool HasVncClient() const;

  private:
    const std::filesystem::path m_page, m_vncClient;
};

// Throws std::runtime_error for a file that cannot be read, or that no page has any use for by its size.
std::string ReadPageFile(const std::filesystem::path& path);

}  // namespace mpm::web
