#include "winhost/kernel/ThreadEnd.h"

#include <pthread.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <vector>

// There in a program that looks for leaks.
extern "C" [[gnu::weak]] void __lsan_register_root_region(const void* begin, size_t size);

namespace winhost {
namespace {

constexpr size_t kStackOfEnd = 64 * 1024;

// What only the dead stack points to is lost on purpose, and no leak of the program: a copy of the stack
// keeps it in sight of the search for leaks.
__attribute__((no_sanitize("address"), no_sanitize("thread"))) void KeepInSight(const void* lowest) {
    if (!&__lsan_register_root_region) return;
    pthread_attr_t attributes;
    void* bottom = nullptr;
    size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    pthread_attr_getstack(&attributes, &bottom, &size);
    pthread_attr_destroy(&attributes);
    static std::mutex& mutex = *new std::mutex;
    static auto& stacks = *new std::list<std::vector<uintptr_t>>;
    const auto* first = reinterpret_cast<const volatile uintptr_t*>(reinterpret_cast<uintptr_t>(lowest) &
                                                                    ~(sizeof(uintptr_t) - 1));
    const auto* end = reinterpret_cast<const volatile uintptr_t*>(static_cast<char*>(bottom) + size);
    std::lock_guard lock(mutex);
    auto& copy = stacks.emplace_back(static_cast<size_t>(end - first));
    for (uintptr_t& value : copy)
        value = *first++;
    __lsan_register_root_region(copy.data(), copy.size() * sizeof(uintptr_t));
}

void ExitThread() {
    pthread_exit(nullptr);
}

}  // namespace

// pthread_exit unwinds the stack on which it is called. On one of its own, which ends at once, it comes to
// the thread's end straight away.
__attribute__((no_sanitize("address"))) void EndWithoutUnwinding() {
    alignas(16) char stack[kStackOfEnd];
    ucontext_t context;
    if (getcontext(&context) != 0) std::terminate();
    KeepInSight(&context);
    context.uc_stack.ss_sp = stack;
    context.uc_stack.ss_size = sizeof stack;
    context.uc_link = nullptr;
    makecontext(&context, &ExitThread, 0);
    setcontext(&context);
    std::terminate();
}

}  // namespace winhost
