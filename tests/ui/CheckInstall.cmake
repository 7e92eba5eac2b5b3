# Installs the build into a scratch prefix and checks that the program, its desktop entry and its
# icon land where a Linux desktop looks for them.
#   cmake -DBUILD_DIR=<build> -DSCRATCH=<folder> -P CheckInstall.cmake
file(REMOVE_RECURSE "${SCRATCH}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${SCRATCH}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${result}")
endif()
foreach(expected bin/velmarin share/applications/velmarin.desktop share/icons/hicolor/256x256/apps/velmarin.png)
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
file(REMOVE_RECURSE "${SCRATCH}")
