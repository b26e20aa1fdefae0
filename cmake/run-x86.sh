#!/bin/sh
# Runs a 32-bit x86 Linux program: natively where the kernel can, else under qemu-i386.
# Test programs that start child processes read CORESTONE_EMULATOR to start them the same way.
if /lib/ld-linux.so.2 --version >/dev/null 2>&1; then
  exec "$@"
fi
CORESTONE_EMULATOR=qemu-i386 exec qemu-i386 "$@"
