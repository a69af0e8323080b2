// A file that is written completely or not at all.
#pragma once

#include <string>
#include <string_view>

// Writes the file under another name first, in the same folder; Replace then gives it its own name. Whatever
// is not replaced is deleted with the object, so that several files can be written before the first of them
// takes effect.
class WholeFile {
  public:
    // The file gets the rights that its folder passes on. The folder must be secure.
    explicit WholeFile(std::string path) : m_path(std::move(path)) {}
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // Writes the content under the other name. False when it cannot be written whole, as on a full disk.
    bool Write(std::string_view content, bool isFolderSecure);
    // Gives the file its name; what had it before is gone. False with the last error.
    bool Replace();

    // The name until then.
    std::string TemporaryPath() const { return m_path + ".new"; }

  private:
    const std::string m_path;
    bool m_isWritten = false;
};
