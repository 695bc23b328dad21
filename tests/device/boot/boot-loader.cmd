# The board's boot loader, for U-Boot: the value of its variable bootcmd.
#
# At every boot it sets the flag "fail" and adds one to "boot_count". A system that has come up well
# clears both flags. After ${bad_boots} boots in a row without cleared flags the next boot starts
# the fallback system.
#
# The environment that the running system shares with the boot loader is on disk 1, since Debian's
# kernel has no driver for the flash chip of the board.
virtio scan
setenv variables fail boot_count bad_boots update_url_cache
virtio dev 1
virtio read ${scratch} 0 ${environment_blocks}
if env import -c ${scratch} ${environment_size} ${variables}; then
    echo "boot loader: the environment is good"
else
    echo "boot loader: the environment is unreadable, a fresh one is used"
    setenv fail 0
    setenv boot_count 0
fi
setexpr boots ${boot_count} + 1
if itest ${fail} == 0 && itest ${boot_count} == 0; then
    setenv last good
else
    setenv last not confirmed
fi
if test "${last}" = good || itest ${boots} <= ${bad_boots}; then
    setenv fail 1
    setexpr boot_count ${boot_count} + 1
    env export -c -s ${environment_size} ${scratch} ${variables}
    virtio write ${scratch} 0 ${environment_blocks}
    echo "boot loader: last boot ${last}, sets fail=1 boot_count=${boot_count} and starts the system"
    setenv bootargs ${arguments} rdinit=/init
else
    echo "boot loader: the flags were not cleared in ${boot_count} boots, more than ${bad_boots} are not allowed: the fallback system starts now"
    setenv bootargs ${arguments} rdinit=/fallback
fi
# What the kernel writes into this memory at a panic is there after a reset.
fdt addr ${fdtcontroladdr}
fdt resize 0x1000
fdt mknode / reserved-memory
fdt set /reserved-memory "#address-cells" <2>
fdt set /reserved-memory "#size-cells" <2>
fdt set /reserved-memory ranges
fdt mknode /reserved-memory ramoops@48000000
fdt set /reserved-memory/ramoops@48000000 compatible ramoops
fdt set /reserved-memory/ramoops@48000000 reg <0 0x48000000 0 0x40000>
fdt set /reserved-memory/ramoops@48000000 record-size <0x10000>
virtio dev 0
load virtio 0:0 ${kernel_addr_r} Image
load virtio 0:0 ${ramdisk_addr_r} initrd
booti ${kernel_addr_r} ${ramdisk_addr_r}:${filesize} ${fdtcontroladdr}
