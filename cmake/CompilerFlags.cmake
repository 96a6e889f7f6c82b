# bayward_flags: what every target of ours compiles with.
add_library(bayward_flags INTERFACE)
target_compile_options(bayward_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12
   AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 sees overlapping copies in "text" + std::string at -O3 where there are none.
    target_compile_options(bayward_flags INTERFACE -Wno-restrict)
endif()
if(BAYWARD_WARNINGS_AS_ERRORS)
    target_compile_options(bayward_flags INTERFACE -Werror)
endif()
if(BAYWARD_SANITIZE)
    target_compile_options(bayward_flags INTERFACE -fsanitize=${BAYWARD_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=undefined)
    target_link_options(bayward_flags INTERFACE -fsanitize=${BAYWARD_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND BAYWARD_SANITIZE MATCHES "address" AND NOT BAYWARD_BUILD_FUZZERS)
        # Libraries that are loaded first, as the tests do with libfaketime, hang a program that holds the run-time in
        # itself. The folder is asked for by that library: -print-runtime-dir of clang 19 names one that need not be there.
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
                        OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
        get_filename_component(runtime_folder ${runtime} DIRECTORY)
        target_link_options(bayward_flags INTERFACE -shared-libasan -Wl,-rpath,${runtime_folder})
    endif()
else()
    target_compile_options(bayward_flags INTERFACE -fstack-protector-strong
                                                   $<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
    target_link_options(bayward_flags INTERFACE -Wl,-z,relro,-z,now)
endif()
if(BAYWARD_BUILD_FUZZERS)
    # The fuzzer sees which code its inputs reach.
    target_compile_options(bayward_flags INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(bayward_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
