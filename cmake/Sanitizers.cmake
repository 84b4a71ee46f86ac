# ZMU_SANITIZE=address: AddressSanitizer with UndefinedBehaviorSanitizer; =thread: ThreadSanitizer;
# =fuzzer: coverage for libFuzzer with ASan and UBSan on everything (clang only). The fuzz targets
# add -fsanitize=fuzzer to their own link, which brings in libFuzzer's main.
if(ZMU_SANITIZE STREQUAL "address")
    set(zmu_sanitize_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
elseif(ZMU_SANITIZE STREQUAL "thread")
    set(zmu_sanitize_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(ZMU_SANITIZE STREQUAL "fuzzer")
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "ZMU_SANITIZE=fuzzer needs clang (libFuzzer), not ${CMAKE_CXX_COMPILER_ID}: "
                            "configure a fresh build directory with CXX=clang++")
    endif()
    set(zmu_sanitize_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                           -fno-omit-frame-pointer)
elseif(NOT ZMU_SANITIZE STREQUAL "")
    message(FATAL_ERROR "ZMU_SANITIZE must be empty, 'address', 'thread' or 'fuzzer', not '${ZMU_SANITIZE}'")
endif()
if(zmu_sanitize_flags)
    add_compile_options(${zmu_sanitize_flags})
    add_link_options(${zmu_sanitize_flags})
endif()
