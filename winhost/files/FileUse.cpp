#include "winhost/files/FileUse.h"

#include <sys/stat.h>

#include "winhost/pc/Marks.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcFs.h"

namespace winhost {
namespace {

// A folder may be reached by several paths, and the path of a process may differ in its case of the drive.
bool IsSameFile(const std::string& left, const std::string& right) {
    struct stat first, second;
    return lstat(left.c_str(), &first) == 0 && lstat(right.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsReadOnly(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && !(status.st_mode & S_IWUSR);
}

bool IsRunning(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return false;
    const std::string root = RootMark(Pc::Instance().Description());
    for (const pid_t id : ReadProcessIds()) {
        const Marks marks = ParseMarks(ReadProcessFile(id, "environ"));
        if (marks.root != root || marks.module.empty()) continue;
        if (!IsSameFile(Pc::Instance().HostPath(marks.module), path)) continue;
        // What the program has started keeps its mark, but runs another file.
        const auto stat = ReadProcessStat(id);
        if (stat && !stat->ended && stat->session == id) return true;
    }
    return false;
}

}  // namespace winhost
