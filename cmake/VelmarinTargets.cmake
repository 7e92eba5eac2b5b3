# One place for the compile settings every Velmarin target shares, applied per target.
include_guard(GLOBAL)
include(CheckPIESupported)
check_pie_supported()

# AddressSanitizer and UndefinedBehaviorSanitizer for every Velmarin target. Not for the failure
# shim: it is preloaded into processes that carry no sanitizer runtime.
option(VELMARIN_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
# libFuzzer targets over the engine; needs clang.
option(VELMARIN_FUZZ "Build the libFuzzer targets (clang only)" OFF)
if(VELMARIN_FUZZ AND NOT (CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND VELMARIN_SANITIZE))
    message(FATAL_ERROR "VELMARIN_FUZZ needs clang (libFuzzer) and VELMARIN_SANITIZE")
endif()

# Warnings become errors in CI, so a warning can never land unnoticed.
set(VELMARIN_WARNINGS_AS_ERRORS OFF)
if(DEFINED ENV{CI} AND "$ENV{CI}" STREQUAL "true")
    set(VELMARIN_WARNINGS_AS_ERRORS ON)
endif()

function(velmarin_configure_target target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        POSITION_INDEPENDENT_CODE ON
        AUTOMOC ON)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII
        QT_NO_KEYWORDS
        QT_NO_URL_CAST_FROM_STRING)

    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 /permissive- /utf-8)
        if(VELMARIN_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE /WX)
        endif()
        return()
    endif()

    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic
        -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
        -Wshadow -Wcast-align)
    if(VELMARIN_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()

    if(VELMARIN_SANITIZE)
        # Any report ends the process, so a test cannot pass over one.
        set(sanitize -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_compile_options(${target} PRIVATE ${sanitize})
        target_link_options(${target} PRIVATE ${sanitize})
    endif()

    set(release "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
    target_compile_options(${target} PRIVATE $<${release}:-fstack-protector-strong>)
    if(NOT VELMARIN_SANITIZE)
        # The sanitizers check every access themselves and do not combine with fortified calls.
        target_compile_definitions(${target} PRIVATE $<${release}:_FORTIFY_SOURCE=2>)
    endif()
    if(NOT APPLE AND NOT WIN32)
        target_link_options(${target} PRIVATE $<${release}:LINKER:-z,relro,-z,now>)
    endif()
endfunction()

# Coverage feedback for libFuzzer in the code under fuzzing; the sanitizer runtime receives it in
# every other program.
function(velmarin_fuzz_coverage target)
    if(VELMARIN_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()
