# What only the Windows build has: the shipped executable's hardening, the mailbox driver and its gate.
target_compile_definitions(zelservice PUBLIC _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
target_link_libraries(zelservice PUBLIC ws2_32 setupapi iphlpapi psapi wininet advapi32 shell32 ole32 oleaut32
    wbemuuid powrprof wlanapi userenv wtsapi32 winmm crypt32 netapi32 winhttp gdi32 d3d11 dxgi dxguid)
# The linker sets ASLR, NX and high-entropy addresses by itself; the compiler's library for the stack protector comes
# with the option at link time only.
set(HARDENED_LINK -static -fstack-protector-strong)
target_link_options(ZELService PRIVATE ${HARDENED_LINK})

# A target of this tree that runs beside the service: like it, it needs system DLLs only.
function(harden name)
    target_compile_definitions(${name} PRIVATE _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
    target_link_options(${name} PRIVATE ${HARDENED_LINK})
endfunction()
function(add_hardened_program name)
    add_executable(${name} ${ARGN})
    harden(${name})
endfunction()
# What tests/sdk asserts of the headers, here of the real SDK's.
file(GLOB SDK_CONTRACT CONFIGURE_DEPENDS tests/sdk/*.cpp)
add_library(sdk_contract OBJECT ${SDK_CONTRACT})
target_compile_definitions(sdk_contract PRIVATE _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN)
add_subdirectory(driver)
add_subdirectory(companions)
add_subdirectory(installer/setup)
if(ZEL_RUNTIME)
    add_subdirectory(runtime/software)
endif()
add_subdirectory(tests/windows/support)
add_subdirectory(tests/windows/programs)
add_subdirectory(tests/windows/wlanapi)
add_subdirectory(tests/windows/netapi32)
