#!/bin/sh
# In the initramfs of dracut, which reads this as part of its own script.
[ ! -x /usr/lib/hoplar/initramfs-start ] || /usr/lib/hoplar/initramfs-start
