#include "testbed/SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace testbed {

Descriptor MakeMemoryFile(size_t size) {
    Descriptor file(memfd_create("shared", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const bool isReady = file && ftruncate(file.Get(), static_cast<off_t>(size)) == 0 &&
                         fcntl(file.Get(), F_ADD_SEALS, F_SEAL_SHRINK) == 0;
    return isReady ? std::move(file) : Descriptor();
}

void* MapMemoryFile(const Descriptor& file, size_t size) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0 || status.st_size < static_cast<off_t>(size)) return nullptr;
    const int seals = fcntl(file.Get(), F_GET_SEALS);
    if (seals < 0 || (seals & F_SEAL_SHRINK) == 0) return nullptr;
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

void UnmapMemory(void* memory, size_t size) {
    munmap(memory, size);
}

}  // namespace testbed
