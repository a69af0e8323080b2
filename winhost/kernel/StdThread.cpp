// The gate ahead of std::thread, for programs whose references to its start have been renamed to
// StartGatedThread: a thread that can't be started is "std::thread" there.
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "winhost/core/Gate.h"

extern "C" {

// The C++ library's own: std::thread::_M_start_thread.
void _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*depend)());

void StartGatedThread(std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*depend)()) {
    WINHOST_CALL_NAME("std::thread");
    static winhost::GateSite site("std::thread");
    if (site.Enter(__builtin_return_address(0)) != 0)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
        thread, std::move(state), depend);
}
}
