# nimauth_add_test(<name> RING <ring> SOURCES <file>... [LIBRARIES <target>...] [PRIVATE_ROOT [<option>...]])
#
# Builds the GoogleTest program <name> and registers it as one ctest test with the label <ring>. With PRIVATE_ROOT it
# runs inside scripts/private-root, with the given options for that script, so that /etc/nimbrel, /usr/libexec/nimauth,
# /var/lib/nimbrel, /etc/hosts, /etc/resolv.conf, /dev/log and the host name are its own.
function(nimauth_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "RING" "SOURCES;LIBRARIES;PRIVATE_ROOT")
    if(NOT arg_RING)
        message(FATAL_ERROR "nimauth_add_test(${name}): RING is missing")
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE nimauth_build_flags ${arg_LIBRARIES} GTest::gmock_main)

    set(command $<TARGET_FILE:${name}>)
    if(arg_PRIVATE_ROOT OR "PRIVATE_ROOT" IN_LIST arg_KEYWORDS_MISSING_VALUES)
        set(command "${PROJECT_SOURCE_DIR}/scripts/private-root" --bind "${PROJECT_BINARY_DIR}"
            --bind-ro "${PROJECT_SOURCE_DIR}" ${arg_PRIVATE_ROOT} -- $<TARGET_FILE:${name}>)
    endif()
    add_test(NAME ${name} COMMAND ${command})
    set_tests_properties(${name} PROPERTIES LABELS ${arg_RING} TIMEOUT 300
        ENVIRONMENT "${NIMAUTH_SANITIZER_ENVIRONMENT}")
endfunction()

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
