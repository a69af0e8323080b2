// C streams on Windows paths.
//
// A log asks for the end of its file before each line. The C library answers that for a stream of its own by
// reading the last block of the file again, and for one that brings its own functions in ten steps. Here the
// calls that ask find the stream's file on their own.
#include <stdio.h>
#include <stdio_ext.h>

#include <fcntl.h>
#include <share.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <optional>
#include <string>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/files/FileSecurity.h"
#include "winhost/pc/Pc.h"

namespace {

struct Stream {
    std::atomic<bool> isTaken{false};
    std::atomic<FILE*> opened{nullptr};
    int file = -1;
    bool appends = false;  // each write goes to the end
    // Where the file stands, when that is known without asking.
    std::optional<off64_t> position;
};

// Never freed, so that a thread may look for its stream while another one opens or closes theirs.
std::array<Stream, 64> s_streams;

// Null when all are open.
Stream* TakeStream() {
    const auto free = std::find_if(s_streams.begin(), s_streams.end(),
                                   [](Stream& stream) { return !stream.isTaken.exchange(true); });
    return free == s_streams.end() ? nullptr : &*free;
}

// Null unless the stream appends and holds no text. The caller has it open.
Stream* FindFlushedLog(FILE* opened) {
    for (Stream& stream : s_streams)
        if (stream.opened.load(std::memory_order_acquire) == opened)
            return stream.appends && __fpending(opened) == 0 ? &stream : nullptr;
    return nullptr;
}

ssize_t ReadStream(void* cookie, char* buffer, size_t size) {
    auto* stream = static_cast<Stream*>(cookie);
    stream->position.reset();
    ssize_t count;
    do {
        count = read(stream->file, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

// A file that is open for appending takes every write at its end, whatever the offset, and pwrite spares it
// the lock of its position. Not called by its name, as that is a point where a thread may be cancelled, which
// costs two locked steps.
ssize_t WriteSome(const Stream& stream, const char* text, size_t size) {
    return stream.appends ? syscall(SYS_pwrite64, stream.file, text, size, off64_t{0})
                          : write(stream.file, text, size);
}

ssize_t WriteStream(void* cookie, const char* buffer, size_t size) {
    auto* stream = static_cast<Stream*>(cookie);
    // With several that append to one file, this is not where the last position was.
    stream->position.reset();
    size_t done = 0;
    while (done < size) {
        const ssize_t count = WriteSome(*stream, buffer + done, size - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

int SeekStream(void* cookie, off64_t* offset, int origin) {
    auto* stream = static_cast<Stream*>(cookie);
    if (origin == SEEK_CUR && *offset == 0 && stream->position) {
        *offset = *stream->position;
        return 0;
    }
    if (origin == SEEK_CUR && stream->appends) origin = SEEK_END;
    const off64_t position = lseek64(stream->file, *offset, origin);
    if (position < 0) return -1;
    stream->position = *offset = position;
    return 0;
}

int CloseStream(void* cookie) {
    auto* stream = static_cast<Stream*>(cookie);
    stream->opened = nullptr;
    const int result = close(stream->file);
    stream->isTaken = false;
    return result;
}

// -1 for a mode that the C library doesn't know.
int OpenFlags(const std::string& mode) {
    const bool update = mode.find('+') != std::string::npos;
    const int access = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    switch (mode[0]) {
        case 'r':
            return access;
        case 'w':
            return access | O_CREAT | O_TRUNC;
        case 'a':
            return access | O_CREAT | O_APPEND;
        default:
            return -1;
    }
}

// Whether the PC's user may open it so, or create it.
bool MayOpen(const std::string& path, int flags, bool exists) {
    if (!exists) return winhost::MayCreate(path, false) == ERROR_SUCCESS;
    const int access = flags & O_ACCMODE;
    DWORD needed = access == O_WRONLY ? 0 : GENERIC_READ;
    if (access != O_RDONLY) needed |= GENERIC_WRITE;
    return winhost::IsGranted(winhost::SecurityOf(path), needed);
}

FILE* Refuse(int error) {
    errno = error;
    return nullptr;
}

}  // namespace

FILE* _fsopen(const char* path, const char* mode, int shareFlag) {
    WINHOST_GATE("_fsopen", Refuse(EIO));
    const int flags = path && mode ? OpenFlags(mode) : -1;
    if (flags < 0 || shareFlag != _SH_DENYNO) return Refuse(EINVAL);
    const std::string hostPath = winhost::Pc::Instance().HostPath(path);
    const bool exists = access(hostPath.c_str(), F_OK) == 0;
    if ((exists || flags & O_CREAT) && !MayOpen(hostPath, flags, exists)) return Refuse(EACCES);
    const int file = open(hostPath.c_str(), flags | O_CLOEXEC, 0666);
    if (file < 0) return nullptr;
    if (!exists) winhost::StoreInitialSecurity(hostPath, nullptr);
    std::string kind(1, mode[0]);
    if (flags & O_RDWR) kind += '+';
    FILE* opened = nullptr;
    if (Stream* stream = TakeStream()) {
        stream->file = file;
        stream->appends = flags & O_APPEND;
        stream->position.reset();
        opened = fopencookie(stream, kind.c_str(), {ReadStream, WriteStream, SeekStream, CloseStream});
        stream->opened = opened;
        stream->isTaken = opened != nullptr;
    }
    if (!opened) {
        close(file);
        return Refuse(EMFILE);
    }
    // The program's own lock guards a stream that several threads use. A second one would cost each line of a
    // log as much, and hide a missing lock from the thread sanitizer.
    __fsetlocking(opened, FSETLOCKING_BYCALLER);
    return opened;
}

int _fseeki64(FILE* stream, long long offset, int origin) {
    WINHOST_GATE("_fseeki64", -1);
    off64_t position = offset;
    if (Stream* log = FindFlushedLog(stream)) return SeekStream(log, &position, origin);
    return fseeko(stream, offset, origin);
}

long long _ftelli64(FILE* stream) {
    WINHOST_GATE("_ftelli64", -1);
    off64_t position = 0;
    if (Stream* log = FindFlushedLog(stream))
        return SeekStream(log, &position, SEEK_CUR) == 0 ? position : -1;
    return ftello(stream);
}
