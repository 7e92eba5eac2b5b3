# Finds libsodium and provides the imported target Sodium::Sodium.
# Windows builds take vcpkg's CMake package (unofficial-sodium); everywhere else pkg-config.
include_guard(GLOBAL)
include(FindPackageHandleStandardArgs)

set(_sodium_found_by "")
find_package(unofficial-sodium CONFIG QUIET)
if(unofficial-sodium_FOUND)
    set(_sodium_found_by "unofficial-sodium::sodium")
    set(Sodium_VERSION "${unofficial-sodium_VERSION}")
else()
    find_package(PkgConfig QUIET)
    if(PKG_CONFIG_FOUND)
        pkg_check_modules(PC_SODIUM QUIET IMPORTED_TARGET libsodium)
        if(PC_SODIUM_FOUND)
            set(_sodium_found_by "PkgConfig::PC_SODIUM")
            set(Sodium_VERSION "${PC_SODIUM_VERSION}")
        endif()
    endif()
endif()

find_package_handle_standard_args(Sodium
    REQUIRED_VARS _sodium_found_by
    VERSION_VAR Sodium_VERSION)

if(Sodium_FOUND AND NOT TARGET Sodium::Sodium)
    add_library(Sodium::Sodium INTERFACE IMPORTED)
    target_link_libraries(Sodium::Sodium INTERFACE ${_sodium_found_by})
endif()
