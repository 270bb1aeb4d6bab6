# Makes Debian packages' trees of what has been installed below usr/ in the staging folders: what the
# prefix may not hold moves out, and what only packages have comes in.
set(packaging "${CPACK_HOPLAR_SOURCE_DIR}/packaging")

# put(SOURCE FOLDER NAME [PERMISSION...])
function(put source folder name)
    file(MAKE_DIRECTORY "${stage}/${folder}")
    configure_file("${source}" "${stage}/${folder}/${name}" COPYONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ ${ARGN})
endfunction()

# Without name and time in it: the same file gives the same bytes.
function(compress)
    execute_process(COMMAND gzip -9nf ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# put_documents(COMPONENT PACKAGE)
function(put_documents component package)
    set(stage "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}")
    put("${packaging}/debian/copyright" usr/share/doc/${package} copyright)
    put("${packaging}/debian/changelog" usr/share/doc/${package} changelog)
    compress("${stage}/usr/share/doc/${package}/changelog")
    file(WRITE "${stage}/usr/share/lintian/overrides/${package}"
        "# Nothing in the source tree says who holds rights in it, and the copyright file invents nothing.\n"
        "${package}: copyright-without-copyright-notice\n")
endfunction()
put_documents(hoplar hoplar)
put_documents(initramfs hoplar-initramfs)
put_documents(dracut hoplar-dracut)

set(stage "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/hoplar")
# The places that the module's usage text names.
file(RENAME "${stage}/usr/etc" "${stage}/etc")

put("${CPACK_HOPLAR_SOURCE_DIR}/config/hoplar-template.cfg" etc/hoplar hoplar.cfg)
put("${CPACK_HOPLAR_SOURCE_DIR}/config/hoplar_mod-enable_features-template.cfg"
    etc/hoplar features.cfg)
foreach(unit IN ITEMS hoplar.service hoplar-metrics.service hoplar-metrics.timer)
    put("${packaging}/${unit}" lib/systemd/system ${unit})
endforeach()
put("${packaging}/debian/hoplar.preset" lib/systemd/system-preset 90-hoplar.preset)
# The two packages for initramfs share these scripts.
foreach(script IN ITEMS files start)
    put("${packaging}/initramfs/${script}" usr/lib/hoplar initramfs-${script}
        OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
endforeach()

file(GLOB pages "${stage}/usr/share/man/man*/*.[58]")
compress(${pages})
