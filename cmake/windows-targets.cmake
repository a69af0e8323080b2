# What only the Windows build has: the shipped executable's hardening, the mailbox driver and its gate.
target_compile_definitions(zelservice PUBLIC _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
target_link_libraries(zelservice PUBLIC ws2_32 setupapi iphlpapi psapi wininet advapi32 shell32 ole32 oleaut32
    wbemuuid powrprof)
# The compiler's library for the stack protector comes with the option at link time only.
target_link_options(ZELService PRIVATE -static -fstack-protector-strong)
add_link_options(-fstack-protector-strong)
if(EXISTS ${CMAKE_SOURCE_DIR}/driver/CMakeLists.txt)
    add_subdirectory(driver)
endif()
