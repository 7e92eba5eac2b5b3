# Installs the build into a scratch prefix and checks that the program, its desktop entry and its
# icon land where a Linux desktop looks for them, and the command-line tool and its man page beside.
#   cmake -DBUILD_DIR=<build> -DSCRATCH=<folder> -P CheckInstall.cmake
file(REMOVE_RECURSE "${SCRATCH}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${SCRATCH}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
foreach(expected bin/velmarin bin/velmarin-cli share/man/man1/velmarin-cli.1
                 share/applications/velmarin.desktop share/icons/hicolor/256x256/apps/velmarin.png)
    if(NOT EXISTS "${SCRATCH}/${expected}")
        message(FATAL_ERROR "missing after install: ${expected}")
    endif()
endforeach()
file(READ "${SCRATCH}/share/applications/velmarin.desktop" entry)
foreach(line "Exec=velmarin" "Icon=velmarin" "Type=Application" "Name=Velmarin")
    string(FIND "${entry}" "${line}\n" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "desktop entry lacks ${line}")
    endif()
endforeach()
execute_process(COMMAND "${SCRATCH}/bin/velmarin-cli" --version OUTPUT_VARIABLE version RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT version MATCHES "^velmarin-cli [0-9]+\\.[0-9]+\\.[0-9]+\n$")
    message(FATAL_ERROR "installed velmarin-cli --version gave ${result}: ${version}")
endif()
file(REMOVE_RECURSE "${SCRATCH}")
