# nimauth_test_flags(<target>): what makes a test's program quicker to build than the product.
function(nimauth_test_flags target)
    # Takes a quarter of the time, and is meant for the product.
    if(NIMAUTH_SANITIZE MATCHES "undefined")
        target_compile_options(${target} PRIVATE -fno-sanitize=undefined)
    endif()
    if(NIMAUTH_LLD AND NOT NIMAUTH_SANITIZE)
        target_link_options(${target} PRIVATE -fuse-ld=lld)
    endif()
endfunction()

# nimauth_add_test(<name> RING <ring> SOURCES <file>... [LIBRARIES <target>...] [PRIVATE_ROOT | STAGED]
#                  [ROOT_OPTIONS <option>...] [OWN_FLAGS])
#
# Builds the GoogleTest program <name> and registers it as one ctest test with the label <ring>.
#
#   PRIVATE_ROOT  runs it inside scripts/private-root, so that /etc/nimbrel, /usr/libexec/nimauth, /var/lib/nimbrel,
#                 /etc/hosts, /etc/resolv.conf, /dev/log and the host name are its own
#   STAGED        the same, with the installed tree laid over the private root: the shipped library, plug-ins, tool and
#                 configuration files lie at their real absolute paths
#   ROOT_OPTIONS  further options for scripts/private-root
#   OWN_FLAGS     the program gets compiler flags of its own, and so cannot use the precompiled header; it is compiled as
#                 the preset says, others without optimisation with every preset
#
# Build trees are shown at their own path inside a private root.
function(nimauth_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "PRIVATE_ROOT;STAGED;OWN_FLAGS" "RING" "SOURCES;LIBRARIES;ROOT_OPTIONS")
    if(NOT arg_RING OR NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "nimauth_add_test(${name}): RING or SOURCES missing, or unknown: ${arg_UNPARSED_ARGUMENTS}")
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE nimauth_build_flags ${arg_LIBRARIES} nimauth_test_support GTest::gmock_main)
    if(NOT arg_OWN_FLAGS)
        set_target_properties(${name} PROPERTIES NIMAUTH_UNOPTIMISED ON)
    endif()
    nimauth_test_flags(${name})
    if(NIMAUTH_COVERAGE)
        target_link_options(${name} PRIVATE LINKER:--undefined=__gcov_dump)  # for leave_child.h
    endif()
    if(NIMAUTH_PRECOMPILE AND NOT arg_OWN_FLAGS)
        target_precompile_headers(${name} REUSE_FROM nimauth_test_headers)
    endif()

    set(command $<TARGET_FILE:${name}>)
    if(arg_STAGED)
        set(stage --stage "${NIMAUTH_STAGE}")
    endif()
    if(arg_PRIVATE_ROOT OR arg_STAGED)
        set(command "${PROJECT_SOURCE_DIR}/scripts/private-root" ${stage} --bind-ro "${PROJECT_SOURCE_DIR}"
            --bind "${PROJECT_BINARY_DIR}" ${arg_ROOT_OPTIONS} -- $<TARGET_FILE:${name}>)
    endif()
    add_test(NAME ${name} COMMAND ${command})
    set_tests_properties(${name} PROPERTIES LABELS ${arg_RING} TIMEOUT 1200
        ENVIRONMENT "${NIMAUTH_SANITIZER_ENVIRONMENT}")
    if(arg_STAGED)
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED staged)
    endif()
endfunction()

if(NIMAUTH_PRECOMPILE)
    file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/test_headers.cc" CONTENT "#include <gmock/gmock.h>\n" @ONLY)
    add_executable(nimauth_test_headers "${CMAKE_CURRENT_BINARY_DIR}/test_headers.cc")
    target_link_libraries(nimauth_test_headers PRIVATE nimauth_build_flags GTest::gmock_main)
    set_target_properties(nimauth_test_headers PROPERTIES NIMAUTH_UNOPTIMISED ON)
    nimauth_test_flags(nimauth_test_headers)
    target_precompile_headers(nimauth_test_headers PRIVATE "${CMAKE_CURRENT_LIST_DIR}/precompiled.h")
endif()

# Leaks that are wanted are named one by one in the suppression file; everything else ends the test.
set(NIMAUTH_SANITIZER_ENVIRONMENT "")
if(NIMAUTH_SANITIZE MATCHES "address")
    set(NIMAUTH_SANITIZER_ENVIRONMENT
        "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
        "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/leaks.supp:print_suppressions=0"
        "UBSAN_OPTIONS=print_stacktrace=1")
elseif(NIMAUTH_SANITIZE MATCHES "thread")
    set(NIMAUTH_SANITIZER_ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")
endif()

# The installed tree, made by the test `staged_tree` for all that need it.
set(NIMAUTH_STAGE "${PROJECT_BINARY_DIR}/stage")
add_test(NAME staged_tree
    COMMAND "${CMAKE_COMMAND}" -E env "DESTDIR=${NIMAUTH_STAGE}" "${CMAKE_COMMAND}" --install "${PROJECT_BINARY_DIR}")
set_tests_properties(staged_tree PROPERTIES LABELS "system;install" FIXTURES_SETUP staged)
