#!/bin/bash
# Copies into the initramfs of dracut what sets the features there. dracut calls these.
# shellcheck disable=SC2154 # its variables

check() {
    return 0
}

depends() {
    return 0
}

# dracut adds the libraries of executables by itself, which modules are not.
install() {
    /usr/lib/hoplar/initramfs-files | while IFS= read -r file; do
        if ! inst "$file" || ! "$DRACUT_INSTALL" -D "$initdir" -R "$file"; then
            dwarn "hoplar: cannot copy $file with its libraries"
        fi
    done
    inst_hook pre-udev 00 "$moddir/pre-udev.sh"
}
