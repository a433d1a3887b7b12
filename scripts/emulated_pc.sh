#!/usr/bin/env bash
# A PC that runs 32-bit programs, emulated by QEMU without any help of this machine's processor or
# kernel, for machines that run none.  Its system is the Debian of scripts/wine_root.sh with Wine, under
# Debian's kernel; it has two processors, no network, and knows nothing of this machine but FOLDER.
#
#   scripts/emulated_pc.sh                                    make it unless it is there; exit 3 when it
#                                                             cannot be had
#   scripts/emulated_pc.sh SECONDS FOLDER COMMAND [ARG...]    run a command in it
#
# FOLDER goes in as a copy and is the command's current folder; its build/test-logs come back.  The
# command's output is shown when it has ended, and its exit code is this script's: 124 when SECONDS
# were not enough.  What is made once lies beside the Debian: the kernel with what it needs to begin,
# and the disk.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here

[[ $# -eq 0 || ($1 =~ ^[0-9]+$ && -d ${2:-} && $# -gt 2) ]] || {
  printf 'usage: scripts/emulated_pc.sh [SECONDS FOLDER COMMAND [ARGUMENT...]]\n' >&2
  exit 2
}
readonly CANNOT_BE_HAD=3
readonly TIMED_OUT=124
# What the kernel does not have built in, in the order of loading.
readonly MODULES=(virtio_ring virtio virtio_pci_modern_dev virtio_pci_legacy_dev virtio_pci virtio_blk
  overlay veth)
# Time for a start and an end on a busy machine, beside the command's own.
readonly START_SECONDS=90
readonly PREFIX_SECONDS=1800
PATH=$PATH:/usr/sbin:/sbin

root=$("$here/wine_root.sh" --path)
pc=$root.pc
cannot() {
  printf 'No emulated PC at %s: %s\n' "$pc" "$1" >&2
  exit "$CANNOT_BE_HAD"
}
for tool in qemu-system-x86_64 busybox mke2fs debugfs; do
  command -v "$tool" >/dev/null ||
    cannot "$tool is missing (scripts/install_packages.sh emulated)"
done
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT

# Starts a PC, whose disk may change or not, and runs a command in it:
# boot PC ''|',snapshot=on' SECONDS FOLDER COMMAND [ARG...]
boot() {
  local pc=$1 changes=$2 seconds=$3 folder=$4 code=0 command
  shift 4
  printf -v command '%q ' "$@"
  rm -rf -- "$work"/{disk,files,results}
  mkdir -p "$work/files/tests"
  cp -r "$folder/." "$work/files/tests"
  mkdir -p "$work/files/tests/build/test-logs"
  cat >"$work/files/start.sh" <<END
export PATH=/usr/sbin:/usr/bin HOME=/root
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
mkdir -p /dev/shm && mount -t tmpfs tmpfs /dev/shm
ln -s /proc/self/fd /dev/fd
printf quorin-pc >/proc/sys/kernel/hostname
ip link set lo up
cd /files/tests
timeout --kill-after=5 $seconds $command >../output 2>&1 </dev/null
printf '%d\n' "\$?" >../exit
sync
mount -o remount,ro /files
mount -o remount,ro /
printf o >/proc/sysrq-trigger
sleep 60
END
  mke2fs -q -t ext4 -O ^has_journal -d "$work/files" "$work/disk" 2G >/dev/null
  # This program and its time limit are all that keeps the PC: it ends with either.
  timeout --foreground --kill-after=5 "$((seconds + START_SECONDS))" qemu-system-x86_64 \
    -accel tcg,thread=multi -cpu Nehalem -smp 2 -m 2048 -nodefaults -nic none -display none \
    -no-reboot -serial "file:$work/console" -kernel "$pc/vmlinuz" -initrd "$pc/initrd" \
    -append 'console=ttyS0 quiet panic=-1' \
    -drive "file=$pc/disk,if=virtio,format=raw,cache=unsafe$changes" \
    -drive "file=$work/disk,if=virtio,format=raw,cache=unsafe" </dev/null || code=$?
  mkdir -p "$work/results" "$folder/build"
  debugfs -R "rdump /tests/build/test-logs $work/results" "$work/disk" 2>/dev/null
  cp -r "$work/results/test-logs" "$folder/build" || true
  debugfs -R 'cat /output' "$work/disk" 2>/dev/null
  if [[ ! $(debugfs -R 'cat /exit' "$work/disk" 2>/dev/null) =~ ^[0-9]+$ ]]; then
    printf 'The emulated PC ended before its command (exit code %d).  Its console:\n' "$code" >&2
    tail -n 20 "$work/console" >&2
    return "$TIMED_OUT"
  fi
  return "${BASH_REMATCH[0]}"
}

# Fetches Debian's kernel, and makes what it begins with: it mounts the two disks.
make_kernel() {
  local new=$1 package module
  # The package that the newest kernel's name stands for.
  package=$(apt-cache depends linux-image-cloud-amd64 2>/dev/null |
    sed -nE 's/^ *Depends: (linux-image-[0-9].*)$/\1/p' | head -n 1)
  [[ -n $package ]] || cannot 'apt knows no linux-image-cloud-amd64 (apt-get update)'
  (cd "$work" && apt-get download -q "$package") >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; cannot "apt-get could not download $package"; }
  dpkg -x "$work"/linux-image-*.deb "$work/kernel"
  cp "$work"/kernel/boot/vmlinuz-* "$new/vmlinuz"
  mkdir -p "$work"/start/{bin,dev,modules,disk}
  cp /bin/busybox "$work/start/bin"
  for module in "${MODULES[@]}"; do
    find "$work/kernel/lib/modules" -name "$module.ko" -exec cp -t "$work/start/modules" {} +
  done
  cat >"$work/start/init" <<END
#!/bin/busybox sh
set -e
for module in ${MODULES[*]}; do /bin/busybox insmod /modules/\$module.ko; done
/bin/busybox mount -t devtmpfs dev /dev
/bin/busybox mount -t ext4 /dev/vda /disk
/bin/busybox mount -t ext4 /dev/vdb /disk/files
/bin/busybox mount -t proc proc /disk/proc
/bin/busybox mount -t sysfs sys /disk/sys
/bin/busybox mount -t devtmpfs dev /disk/dev
exec /bin/busybox switch_root /disk /bin/bash /files/start.sh
END
  chmod +x "$work/start/init"
  (cd "$work/start" && find . | busybox cpio -o -H newc 2>/dev/null) | gzip -1 >"$new/initrd"
}

# Makes the disk from the Debian, and in it the prefix if that has none.
make_disk() {
  local new=$1 size
  "${as_root[@]}" mkdir -p "$root/files"
  size=$("${as_root[@]}" du -sm "$root" | cut -f1)
  "${as_root[@]}" mke2fs -q -t ext4 -O ^has_journal -d "$root" "$new/disk" "$((size + 2048))M" \
    >/dev/null
  "${as_root[@]}" chown "$(id -u)" "$new/disk"
  if [[ ! -e $root/prefix/system.reg ]]; then
    mkdir "$work/first"
    cp -r "$here" "$work/first"
    boot "$new" '' "$PREFIX_SECONDS" "$work/first" env QUORIN_WINE_ROOT=/ scripts/wine_root.sh ||
      cannot 'Wine could not make its prefix in it'
  fi
}

if [[ ! -d $pc ]]; then
  as_root=()
  if [[ $(id -u) -ne 0 ]]; then
    sudo --non-interactive true 2>/dev/null || cannot 'only root (or sudo) can make it'
    as_root=(sudo)
  fi
  "$here/wine_root.sh" --without-prefix || exit
  # Nobody makes or changes the Debian meanwhile.
  "${as_root[@]}" touch "$root.lock"
  exec {lock}<"$root.lock"
  flock "$lock"
fi
if [[ ! -d $pc ]]; then
  printf 'Making an emulated PC in %s (a few minutes) ...\n' "$pc"
  "${as_root[@]}" rm -rf -- "$pc.new"
  "${as_root[@]}" install -d -o "$(id -u)" "$pc.new"
  make_kernel "$pc.new"
  make_disk "$pc.new"
  "${as_root[@]}" mv -- "$pc.new" "$pc"
fi
[[ $# -eq 0 ]] || boot "$pc" ',snapshot=on' "$@"
