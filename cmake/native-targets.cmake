# What only the native build has: the Windows calls on Linux, the simulated firmware, and the tests.
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(CURL)
if(NOT CURL_FOUND)
    message(FATAL_ERROR "libcurl is missing: install the package libcurl4-openssl-dev")
endif()

# The sanitized builds compile everything twice for the tests, and half of that time is parsing. The others compile
# without this, so that no file leans on a header that it doesn't include.
function(precompile target)
    if(CMAKE_BUILD_TYPE STREQUAL "Sanitized")
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()
set(STANDARD_HEADERS <atomic> <chrono> <functional> <map> <memory> <mutex> <string> <thread> <unordered_map> <vector>)

file(GLOB TESTBED_SOURCES CONFIGURE_DEPENDS testbed/*.cpp)
add_library(testbed STATIC ${TESTBED_SOURCES})
target_link_libraries(testbed PUBLIC PkgConfig::JSONCPP Threads::Threads)

file(GLOB WINHOST_SOURCES CONFIGURE_DEPENDS winhost/*/*.cpp)
list(FILTER WINHOST_SOURCES EXCLUDE REGEX "/winhost/(programs|tests)/")
add_library(winhost STATIC ${WINHOST_SOURCES})
target_include_directories(winhost SYSTEM BEFORE PUBLIC winhost/include)
target_link_libraries(winhost PUBLIC testbed PRIVATE OpenSSL::Crypto CURL::libcurl)
target_link_libraries(zelservice PUBLIC winhost)
target_sources(ZELService PRIVATE winhost/programs/ServiceUsage.cpp)
precompile(winhost ${STANDARD_HEADERS} <json/json.h>)
precompile(zelservice ${STANDARD_HEADERS} <winsock2.h> <windows.h>)

# The command line library is slow to compile; the sanitized builds take it as it is.
function(compile_quickly)
    if(CMAKE_BUILD_TYPE STREQUAL "Sanitized")
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "-O0;-g0;-fno-sanitize=undefined")
    endif()
endfunction()

# The command line of the control socket is a program that needs no build.
configure_file(winhost/winhostctl.py ${CMAKE_BINARY_DIR}/winhostctl COPYONLY FILE_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

file(GLOB MPMSIM_SOURCES CONFIGURE_DEPENDS firmware/*.cpp firmware/*/*.cpp)
list(REMOVE_ITEM MPMSIM_SOURCES ${CMAKE_SOURCE_DIR}/firmware/main.cpp)
if(MPMSIM_SOURCES)
    find_library(HTTP_PARSER http_parser REQUIRED)
    pkg_check_modules(PUGIXML REQUIRED IMPORTED_TARGET pugixml)
    # The display client: AV1, RFB, colours, and the virtual keyboard and mouse.
    pkg_check_modules(SCREEN REQUIRED IMPORTED_TARGET dav1d libvncserver xcb xcb-xtest)
    find_library(YUV yuv REQUIRED)
    pkg_check_modules(LIBWEBSOCKETS IMPORTED_TARGET libwebsockets)
    if(NOT LIBWEBSOCKETS_FOUND)
        message(FATAL_ERROR "libwebsockets is missing: install the package libwebsockets-dev")
    endif()
    add_library(mpm STATIC ${MPMSIM_SOURCES})
    target_link_libraries(mpm PUBLIC testbed OpenSSL::SSL PkgConfig::PUGIXML ${HTTP_PARSER} PkgConfig::SCREEN ${YUV}
        PkgConfig::LIBWEBSOCKETS)
    precompile(mpm ${STANDARD_HEADERS} <span> <json/json.h>)
    compile_quickly(firmware/main.cpp)
    add_executable(mpmsim firmware/main.cpp)
    target_link_libraries(mpmsim mpm)
    # The page's files are looked for beside the program.
    file(GLOB PAGE_FILES CONFIGURE_DEPENDS firmware/web/page/*)
    set(copied)
    foreach(file ${PAGE_FILES})
        get_filename_component(name ${file} NAME)
        add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/lab/${name} DEPENDS ${file} VERBATIM
            COMMAND ${CMAKE_COMMAND} -E copy ${file} ${CMAKE_BINARY_DIR}/lab/${name})
        list(APPEND copied ${CMAKE_BINARY_DIR}/lab/${name})
    endforeach()
    add_custom_target(lab_page DEPENDS ${copied})
    add_dependencies(mpmsim lab_page)
endif()

add_subdirectory(companions)
add_subdirectory(runtime/software)

if(ZEL_TESTS OR ZEL_FUZZERS OR ZEL_BENCH)
    add_subdirectory(tests/support/scripted)
    add_subdirectory(tests/support/scriptednuba)
endif()

if(ZEL_TESTS)
    enable_testing()
    find_package(GTest REQUIRED)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    # The code under test is optimised and watched for undefined behaviour, the tests need not be. In the sanitized
    # builds all of them share one set of precompiled headers and are compiled several files at a time.
    set(TEST_OPTIONS -O0 -g0 -fno-sanitize=undefined)
    # The service's library as the tests have it: its starts of a std::thread can be made to fail like a call.
    set(gated ${CMAKE_BINARY_DIR}/libzelservice_gated.a)
    add_custom_command(OUTPUT ${gated}
        COMMAND ${CMAKE_OBJCOPY} --redefine-sym
            _ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE=StartGatedThread
            $<TARGET_FILE:zelservice> ${gated}
        DEPENDS zelservice VERBATIM)
    add_custom_target(make_zelservice_gated DEPENDS ${gated})
    add_library(zelservice_gated STATIC IMPORTED)
    set_target_properties(zelservice_gated PROPERTIES IMPORTED_LOCATION ${gated})
    target_link_libraries(zelservice_gated INTERFACE winhost PkgConfig::JSONCPP)
    target_include_directories(zelservice_gated SYSTEM INTERFACE ${RAPIDXML_FOLDER})
    add_dependencies(zelservice_gated make_zelservice_gated)
    file(GLOB sources CONFIGURE_DEPENDS tests/support/*.cpp)
    add_library(testsupport STATIC ${sources})
    target_link_libraries(testsupport PUBLIC zelservice_gated mpm GTest::gtest)
    target_compile_options(testsupport PRIVATE ${TEST_OPTIONS})
    # Tests read the log again and again.
    set_source_files_properties(tests/support/ServiceLog.cpp tests/support/ServiceFixture.cpp
        PROPERTIES COMPILE_OPTIONS -O1 SKIP_PRECOMPILE_HEADERS ON)
    precompile(testsupport ${STANDARD_HEADERS} <gmock/gmock.h> <gtest/gtest.h>)
    # Each part of a program's tests runs in one process and is one test of ctest; tests/count.py counts the single tests.
    function(run_in_parts name parts)
        foreach(part RANGE 1 ${parts})
            add_test(NAME ${name}.${part} COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/tests/run_unit_tests.py
                $<TARGET_FILE:${name}> ${part} ${parts})
            set_tests_properties(${name}.${part} PROPERTIES TIMEOUT 600)
        endforeach()
    endfunction()
    # One executable for each folder of unit tests.
    function(add_unit_tests name folder)
        file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
        if(sources)
            add_executable(${name} ${sources})
            target_link_libraries(${name} ${ARGN} GTest::gmock GTest::gtest GTest::gtest_main)
            target_compile_options(${name} PRIVATE ${TEST_OPTIONS})
            if(CMAKE_BUILD_TYPE STREQUAL "Sanitized")
                target_precompile_headers(${name} REUSE_FROM testsupport)
                set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
                # GCC takes the sources of such a batch for headers, whose classes should have no unnamed namespace.
                target_compile_options(${name} PRIVATE -Wno-subobject-linkage)
            endif()
            run_in_parts(${name} 2)
        endif()
    endfunction()
    add_unit_tests(winhost_tests winhost/tests winhost)
    # What tests/sdk asserts of the headers, here of winhost's.
    file(GLOB SDK_CONTRACT CONFIGURE_DEPENDS tests/sdk/*.cpp)
    add_library(sdk_contract OBJECT ${SDK_CONTRACT})
    target_link_libraries(sdk_contract PRIVATE winhost)
    add_dependencies(winhost_tests sdk_contract)
    add_executable(winhost_onpc winhost/tests/programs/onpc.cpp)
    target_link_libraries(winhost_onpc winhost)
    add_dependencies(winhost_tests winhost_onpc)
    # What LoadLibraryW of a test finds beside the test program.
    add_library(winhost_testlibrary MODULE winhost/tests/programs/testlibrary.cpp)
    add_dependencies(winhost_tests winhost_testlibrary)
    pkg_check_modules(AOM REQUIRED IMPORTED_TARGET aom)
    add_unit_tests(firmware_tests tests/unit/firmware mpm PkgConfig::AOM)
    add_dependencies(firmware_tests mpmsim)
    pkg_check_modules(DAV1D REQUIRED IMPORTED_TARGET dav1d)
    add_unit_tests(runtime_tests tests/unit/runtime luxrt PkgConfig::DAV1D)
    target_compile_definitions(runtime_tests PRIVATE LUXRT64_FILE="$<TARGET_FILE:luxrt64>")
    add_dependencies(runtime_tests luxrt64)
    add_subdirectory(tests/process/programs)
    add_subdirectory(tests/faults)
    add_test(NAME mutants.operators COMMAND ${Python3_EXECUTABLE} -B -m unittest mutants.test_operators
        WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/tests)
    # Loaded by the tests' programs, and found beside them.
    add_dependencies(testsupport scriptedrt scriptedrt_without_init scriptedrt_without_version scriptednuba)
    list(JOIN PRODUCT_FOLDERS "\",\"" folders)
    set_source_files_properties(tests/unit/mailbox/LevelUsersTest.cpp PROPERTIES COMPILE_DEFINITIONS
        "SOURCE_FOLDER=\"${CMAKE_SOURCE_DIR}\";PRODUCT_FOLDERS=\"${folders}\"")
    foreach(folder ${PRODUCT_FOLDERS})
        string(REGEX REPLACE "/.*" "" folder ${folder})
        add_unit_tests(${folder}_tests tests/unit/${folder} testsupport)
    endforeach()
    add_dependencies(KVMDisplayMgrLib_tests luxrt64)
    # The part of the installer that deletes files.
    add_library(setup_data STATIC installer/setup/RemoveData.cpp)
    target_link_libraries(setup_data PUBLIC zelservice_gated)
    add_unit_tests(installer_tests tests/unit/installer setup_data testsupport)
endif()

if(ZEL_FUZZERS OR ZEL_TESTS)
    add_subdirectory(fuzz)
endif()

if(ZEL_BENCH)
    find_package(spdlog REQUIRED)
    # The asan build compiles the benchmarks only to see their warnings.
    file(GLOB sources CONFIGURE_DEPENDS bench/*.cpp)
    compile_quickly(${sources})
    add_executable(tcpload bench/tcpload.cpp)
    add_executable(bench_firmware bench/firmware.cpp)
    target_link_libraries(bench_firmware mpm)
    # Apart, because the service's logger needs the platform's headers and spdlog must not see them.
    add_library(service_log OBJECT bench/ServiceLog.cpp)
    target_link_libraries(service_log PUBLIC zelservice)
    add_executable(loglines bench/loglines.cpp)
    target_link_libraries(loglines service_log spdlog::spdlog)
    add_executable(scan bench/scan.cpp bench/Scan.cpp)
    target_link_libraries(scan service_log)
    # The screen: the user and the firmware, and a host that has nothing but its chunks.
    file(GLOB sources CONFIGURE_DEPENDS bench/screen/*.cpp)
    compile_quickly(${sources})
    add_executable(screenload ${sources})
    target_link_libraries(screenload mpm ${CMAKE_DL_LIBS})
    add_executable(requestload bench/requestload.cpp)
    target_link_libraries(requestload testbed)
    add_executable(chunkwriter bench/chunkwriter.cpp)
    target_link_libraries(chunkwriter winhost)
    add_library(endlessrt MODULE bench/EndlessFrames.cpp tests/support/scripted/ExportVersion.cpp)
    target_link_libraries(endlessrt PRIVATE scripted_objects)
    set_target_properties(endlessrt PROPERTIES PREFIX "" OUTPUT_NAME luxrt64
        LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/endless)
endif()
