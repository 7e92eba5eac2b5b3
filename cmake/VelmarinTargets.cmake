# One place for the compile settings every Velmarin target shares, applied per target.
include_guard(GLOBAL)
include(CheckPIESupported)
check_pie_supported()

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

    set(release "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
    target_compile_options(${target} PRIVATE $<${release}:-fstack-protector-strong>)
    target_compile_definitions(${target} PRIVATE $<${release}:_FORTIFY_SOURCE=2>)
    if(NOT APPLE AND NOT WIN32)
        target_link_options(${target} PRIVATE $<${release}:LINKER:-z,relro,-z,now>)
    endif()
endfunction()
