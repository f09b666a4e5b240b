#!/usr/bin/env bash
# Lets the kernel run AArch64 executables through qemu-aarch64, so that test
# binaries running under the emulator can start further copies of themselves
# (fresh-process tests, the tool's tests). Idempotent; needs root.
set -euo pipefail
binfmt=/proc/sys/fs/binfmt_misc
if [ ! -e "$binfmt/register" ]; then
  mount -t binfmt_misc binfmt_misc "$binfmt"
fi
if [ ! -e "$binfmt/kovani-qemu-aarch64" ]; then
  magic='\x7f\x45\x4c\x46\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
  mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
  echo ":kovani-qemu-aarch64:M::${magic}:${mask}:$(command -v qemu-aarch64):F" > "$binfmt/register"
fi
