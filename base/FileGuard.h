// Keeps the service from writing to a file by a link that a user has put in its place.
#pragma once

#include <fstream>
#include <string>

#include "base/FileAccess.h"

// For the WARN line about such a file, behind its path.
inline constexpr char kReplacedFile[] = " was a link or could be changed by users, and is replaced";

// Makes sure that the file is a plain one of the system's own, and creates it when it is missing. A link, a
// hard link and a file that users may write to are deleted first. While the guard exists, no other file can
// take the file's name, so that its owner may open it by name. The folder must be secure: else a user could
// change it at any time.
class FileGuard {
  public:
    explicit FileGuard(const std::string& path);
    // False with the last error when the file must not be opened.
    explicit operator bool() const { return static_cast<bool>(m_file); }
    // True when something else was in the file's place.
    bool HasReplaced() const { return m_hasReplaced; }

  private:
    UniqueFileHandle m_file;
    bool m_hasReplaced = false;
};

// Opens the file under a guard and empties it, and logs a WARN line when something else was in its place. The
// stream is not open when the folder is not secure, or the file must not be opened or cannot be. With
// std::ios::binary, line ends stay as they are written.
std::ofstream OpenForWriting(const std::string& path, bool isFolderSecure,
                             std::ios::openmode mode = std::ios::out);

// Deletes the file, the empty folder or the link itself, never what a link leads to. `facts` are those of the
// path. False with the last error.
bool RemoveInPlace(const std::string& path, const FileFacts& facts);

enum class Removal { NotNeeded, Done, Failed };

// Deletes what is at the path unless only the system can change it. Failed with the last error.
Removal RemoveUnlessTrusted(const std::string& path);
