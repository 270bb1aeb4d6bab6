# Makes a Debian package's tree of what has been installed below usr/ in the staging folder: what
# the prefix may not hold moves out, and what only this package has comes in.
set(stage "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
set(packaging "${CPACK_HOPLAR_SOURCE_DIR}/packaging")

function(put source folder name)
    file(MAKE_DIRECTORY "${stage}/${folder}")
    configure_file("${source}" "${stage}/${folder}/${name}" COPYONLY NO_SOURCE_PERMISSIONS)
endfunction()

# Without name and time in it: the same file gives the same bytes.
function(compress)
    execute_process(COMMAND gzip -9nf ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The places that the module's usage text names.
file(RENAME "${stage}/usr/etc" "${stage}/etc")

put("${CPACK_HOPLAR_SOURCE_DIR}/config/hoplar-template.cfg" etc/hoplar hoplar.cfg)
put("${CPACK_HOPLAR_SOURCE_DIR}/config/hoplar_mod-enable_features-template.cfg"
    etc/hoplar features.cfg)
put("${packaging}/hoplar.service" lib/systemd/system hoplar.service)
put("${packaging}/debian/hoplar.preset" lib/systemd/system-preset 90-hoplar.preset)
put("${packaging}/debian/copyright" usr/share/doc/hoplar copyright)
put("${packaging}/debian/lintian-overrides" usr/share/lintian/overrides hoplar)
put("${packaging}/debian/changelog" usr/share/doc/hoplar changelog)

file(GLOB pages "${stage}/usr/share/man/man*/*.[58]")
compress(${pages} "${stage}/usr/share/doc/hoplar/changelog")
