# `cpack` in the build folder makes Debian packages: "hoplar" of what `cmake --install` installs and
# what packaging/debian/stage.cmake adds, and one for each of the programs that make initramfs.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hoplar)
set(CPACK_PACKAGE_VENDOR "The hoplar developers")
set(CPACK_PACKAGE_CONTACT "The hoplar developers <hoplar@hoplar.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
# Whatever the umask of who builds it.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# add_initramfs_file(COMPONENT FILE FOLDER NAME): below the prefix, in that component's package alone.
function(add_initramfs_file component file folder name)
    install(PROGRAMS packaging/initramfs/${file} DESTINATION ${folder} RENAME ${name}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
add_initramfs_file(initramfs hook share/initramfs-tools/hooks hoplar)
add_initramfs_file(initramfs init-top share/initramfs-tools/scripts/init-top 00-hoplar)
add_initramfs_file(dracut module-setup.sh lib/dracut/modules.d/50hoplar module-setup.sh)
add_initramfs_file(dracut pre-udev.sh lib/dracut/modules.d/50hoplar pre-udev.sh)

set(CPACK_COMPONENTS_ALL hoplar initramfs dracut)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_HOPLAR_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/debian/stage.cmake")

set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_HOPLAR_PACKAGE_NAME hoplar)
set(CPACK_DEBIAN_HOPLAR_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_HOPLAR_PACKAGE_RECOMMENDS pciutils)
set(CPACK_DEBIAN_HOPLAR_PACKAGE_SUGGESTS "hoplar-initramfs | hoplar-dracut")
set(CPACK_DEBIAN_HOPLAR_PACKAGE_CONTROL_EXTRA
    "${debian}/conffiles;${debian}/postinst;${debian}/prerm;${debian}/postrm")
set(CPACK_DEBIAN_HOPLAR_DESCRIPTION
"PCI server that sets payload sizes and ECRC of PCI Express
hoplar owns the configuration space of a machine and loads modules that set
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

# add_initramfs_package(COMPONENT TOOL)
macro(add_initramfs_package component tool)
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME hoplar-${component})
    set(CPACK_DEBIAN_${upper}_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "hoplar (= ${PROJECT_VERSION}), ${tool}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA
        "${debian}/initramfs/triggers;${debian}/initramfs/postrm")
    set(CPACK_DEBIAN_${upper}_DESCRIPTION
"sets features of PCI Express before drivers load (${tool})
hoplar sets features of PCI Express, payload sizes among them, which should
change only while nothing is transferred.
.
The initramfs of ${tool} does so with this package, before it loads the
drivers that the root file system needs. What is set is what is configured for
hoplar.service: nothing, until you change that.")
endmacro()
add_initramfs_package(initramfs initramfs-tools)
add_initramfs_package(dracut dracut)
include(CPack)
