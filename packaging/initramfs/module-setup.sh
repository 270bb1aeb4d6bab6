#!/bin/bash
# Copies into the initramfs of dracut what sets the features there. dracut calls these.

check() {
    return 0
}

depends() {
    return 0
}

# Modules are no executables, whose libraries dracut would add by itself.
install() {
    /usr/lib/hoplar/initramfs-files | while IFS= read -r file; do
        DRACUT_RESOLVE_DEPS=1 inst "$file" || dwarn "hoplar: cannot copy $file"
    done
    # shellcheck disable=SC2154 # dracut's: this folder
    inst_hook pre-udev 00 "$moddir/pre-udev.sh"
}
