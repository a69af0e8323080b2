// Keeps the service from writing to a file by a link that a user has put in its place.
#pragma once

#include <string>

#include "base/FileAccess.h"

// For the WARN line about such a file, behind its path.
inline constexpr char kReplacedFile[] = " was a link or could be changed by users, and is replaced";

// Makes sure that the file is a plain one of the system's own, and creates it when it is missing. A link, a
// hard link and a file that users may write to are deleted first. While the guard exists, no other file can
// take the file's name, so that its owner may open it by name.
class FileGuard {
  public:
    // Refuses a file whose folder is not secure: a user could change the folder at any time.
    explicit FileGuard(const std::string& path, bool isFolderSecure = true);
    // False with the last error when the file must not be opened.
    explicit operator bool() const { return static_cast<bool>(m_file); }
    // True when something else was in the file's place.
    bool HasReplaced() const { return m_hasReplaced; }

  private:
    UniqueFileHandle m_file;
    bool m_hasReplaced = false;
};

// Deletes what is at the path unless only the system can change it. True when nothing untrusted is left.
bool RemoveUnlessTrusted(const std::string& path);

// Deletes the link and leaves what it leads to alone.
bool RemoveLink(const std::string& path, const FileFacts& link);
