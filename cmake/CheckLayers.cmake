# Which layer may include which: run as a test (cmake -DSOURCE_DIR=... -P CheckLayers.cmake), so a
# change that makes the engine reach up, or the window reach into the file format, fails at once.
#
# Each rule: a folder, then the include prefixes its files may use from the project, nothing else.
set(rules
    "core/crypto|core/crypto/"
    "core/index|core/index/"
    "core/container|core/container/,core/crypto/,core/index/"
    "core/workspace|core/workspace/,core/index/"
    "core/vault|core/"
    "platform|platform/"
    "cli|cli/,core/"
    # The window uses the vault's session and what the index shows, never the container's bytes: of
    # container/ it may name the progress callback and the byte copy a backup makes, of crypto/ the
    # secret text it wipes and the process protection it turns on.
    "ui|ui/,platform/,core/vault/,core/index/,core/workspace/Workspace.h,core/container/ProgressCallback.h,core/container/ContainerBackup.h,core/container/DriveSpace.h,core/crypto/SecretText.h,core/crypto/ProcessProtection.h"
    "app|ui/,platform/,core/crypto/ProcessProtection.h")
set(failures "")
foreach(rule IN LISTS rules)
    string(REPLACE "|" ";" parts "${rule}")
    string(REPLACE "," ";" parts "${parts}")
    list(GET parts 0 folder)
    list(SUBLIST parts 1 -1 allowed)
    file(GLOB_RECURSE sources "${SOURCE_DIR}/${folder}/*.h" "${SOURCE_DIR}/${folder}/*.cpp")
    foreach(source IN LISTS sources)
        file(STRINGS "${source}" includes REGEX "^[ \t]*#[ \t]*include[ \t]+\"")
        foreach(line IN LISTS includes)
            string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]+\"([^\"]+)\".*" "\\1" included "${line}")
            set(ok FALSE)
            foreach(prefix IN LISTS allowed)
                string(FIND "${included}" "${prefix}" at)
                if(at EQUAL 0)
                    set(ok TRUE)
                endif()
            endforeach()
            if(NOT ok)
                file(RELATIVE_PATH shown "${SOURCE_DIR}" "${source}")
                string(APPEND failures "  ${shown} includes \"${included}\"\n")
            endif()
        endforeach()
        # The engine never sees a widget.
        if(folder MATCHES "^core/")
            file(STRINGS "${source}" widgets REGEX "#[ \t]*include[ \t]+<(QtWidgets|QWidget|QDialog|QMessageBox|QApplication|QMainWindow)")
            if(widgets)
                file(RELATIVE_PATH shown "${SOURCE_DIR}" "${source}")
                string(APPEND failures "  ${shown} includes a widget header\n")
            endif()
        endif()
    endforeach()
endforeach()
if(failures)
    message(FATAL_ERROR "Includes across layers that are not allowed:\n${failures}")
endif()
message(STATUS "Every include stays within its layer's rules.")
