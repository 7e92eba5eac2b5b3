# `cpack -G DEB` in the build folder makes a Debian package of what `cmake --install` installs.
set(CPACK_PACKAGE_NAME "velmarin")
set(CPACK_PACKAGE_VENDOR "Equipe Velmarin")
set(CPACK_PACKAGE_CONTACT "Equipe Velmarin <contato@velmarin.com.br>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://www.velmarin.com.br/")
set(CPACK_GENERATOR "DEB")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "utils")
# Library dependencies are read off the installed binaries.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
include(CPack)
