# Compiler and linker flags of every target of this project, as one INTERFACE target: warnings as errors, hidden
# visibility, hardening, and the instrumentation that a preset asks for.

set(NIMAUTH_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, 'address,undefined' or 'thread'")
option(NIMAUTH_COVERAGE "Build with gcov instrumentation" OFF)
option(NIMAUTH_WERROR "Treat warnings as errors" ON)

add_library(nimauth_build_flags INTERFACE)

target_compile_options(nimauth_build_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wundef -Wvla
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
    $<$<BOOL:${NIMAUTH_WERROR}>:-Werror>
    -fstack-protector-strong)

# g++ 12 takes "literal" + std::string for an overlapping copy when it optimises fully (GCC bug 105651).
target_compile_options(nimauth_build_flags INTERFACE
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<CONFIG:Release>>:-Wno-restrict>)

target_link_options(nimauth_build_flags INTERFACE
    LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack LINKER:--as-needed)

# Takes a quarter of the time. What is not instrumented is linked as what is shipped, but for the tests' programs.
find_program(NIMAUTH_LLD ld.lld)
mark_as_advanced(NIMAUTH_LLD)
if(NIMAUTH_SANITIZE)
    target_compile_options(nimauth_build_flags INTERFACE
        -fsanitize=${NIMAUTH_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(nimauth_build_flags INTERFACE -fsanitize=${NIMAUTH_SANITIZE})
    if(NIMAUTH_LLD)
        target_link_options(nimauth_build_flags INTERFACE -fuse-ld=lld)
    endif()
    if(NIMAUTH_SANITIZE MATCHES "undefined")
        # Type information is matched by name across shared objects, so that the checks work with plug-ins too.
        target_compile_options(nimauth_build_flags INTERFACE -fno-sanitize=vptr,function)
    endif()
else()
    target_link_options(nimauth_build_flags INTERFACE LINKER:-z,defs)
    if(NOT NIMAUTH_COVERAGE)
        # Fortified functions want optimised code. Tests do without either (NIMAUTH_UNOPTIMISED): they compile faster.
        set(unoptimised "$<BOOL:$<TARGET_PROPERTY:NIMAUTH_UNOPTIMISED>>")
        target_compile_options(nimauth_build_flags INTERFACE
            -U_FORTIFY_SOURCE $<IF:${unoptimised},-O0,-D_FORTIFY_SOURCE=2>)
    endif()
endif()

if(NIMAUTH_COVERAGE)
    target_compile_options(nimauth_build_flags INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(nimauth_build_flags INTERFACE --coverage)
endif()

# The types that a library offers, in its debug information, where the tests compare them with those of its release line.
add_library(nimauth_public_types INTERFACE)
if(NIMAUTH_BUILD_TESTS AND NOT NIMAUTH_SANITIZE AND NOT NIMAUTH_COVERAGE)
    target_compile_options(nimauth_public_types INTERFACE -g2)
endif()

# nimauth_precompile(<target>... [TYPES]): the sources of these libraries share the compiled form of the headers that most
# of them include, and still include what they use. TYPES: those with the flags of nimauth_public_types.
# A compiler cache works on whole files and gains nothing from a precompiled header.
if(CMAKE_CXX_COMPILER_LAUNCHER)
    set(precompile OFF)
else()
    set(precompile ON)
endif()
option(NIMAUTH_PRECOMPILE "Compile the headers that most sources include once" ${precompile})
if(NIMAUTH_PRECOMPILE)
    file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/headers.cc" CONTENT "#include <string>\n" @ONLY)
    foreach(headers nimauth_headers nimauth_headers_types)
        add_library(${headers} OBJECT "${PROJECT_BINARY_DIR}/headers.cc")
        target_link_libraries(${headers} PRIVATE nimauth_build_flags)
        target_precompile_headers(${headers} PRIVATE "${CMAKE_CURRENT_LIST_DIR}/precompiled.h")
    endforeach()
    target_link_libraries(nimauth_headers_types PRIVATE nimauth_public_types)
    # g++ 12 forgets in a precompiled header which headers are the system's. Where it optimises fully, it then tells what
    # it wrongly suspects inside the C++ library's string.
    target_compile_options(nimauth_build_flags INTERFACE
        "$<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<CONFIG:Release>>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread>")
endif()

function(nimauth_precompile)
    cmake_parse_arguments(PARSE_ARGV 0 arg "TYPES" "" "")
    if(arg_TYPES)
        set(headers nimauth_headers_types)
    else()
        set(headers nimauth_headers)
    endif()
    if(NIMAUTH_PRECOMPILE)
        foreach(target ${arg_UNPARSED_ARGUMENTS})
            target_precompile_headers(${target} REUSE_FROM ${headers})
        endforeach()
    endif()
endfunction()
