# One Debian package with all that is installed; `cpack` in the build directory makes it. Its libraries lie in /usr/lib
# itself: the manifests lead there by relative paths, in whatever place the package is unpacked.
install(FILES cmake/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VENDOR Velmoor)
set(CPACK_PACKAGE_CONTACT "The Velmoor developers")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# What its programs and libraries need, the loader among it, as their own dynamic sections tell.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What its Python package is for.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS python3-pytest)
include(CPack)
