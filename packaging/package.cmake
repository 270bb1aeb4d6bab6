# `cpack` in the build folder makes a Debian package of what `cmake --install` installs and what
# packaging/debian/stage.cmake adds.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hoplar)
set(CPACK_PACKAGE_VENDOR "The hoplar developers")
set(CPACK_PACKAGE_CONTACT "The hoplar developers <hoplar@hoplar.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Whatever the umask of who builds it.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_HOPLAR_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/debian/stage.cmake")

set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pciutils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${debian}/conffiles;${debian}/postinst;${debian}/prerm;${debian}/postrm")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PCI server that sets payload sizes and ECRC of PCI Express")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"hoplar owns the configuration space of a machine and loads modules that set
PCI Express features which firmware and kernels leave unset, as one small text
file says:
.
 * Max Payload Size: the largest payload that every element between a root
   port and its endpoints supports;
 * ECRC: end-to-end CRC generation and checking, function by function.
.
It works on dumps as lspci writes them, on a snapshot of the machine as a plan
of what would change, or on the hardware, early at the start of the machine and
after resets. The service that does so is installed, but not enabled.
.
The headers for modules and hosts of your own are included.")
include(CPack)
