#!/bin/sh
# Runs one Windows test program under 64-bit Wine, quietly; the caller starts the Wine server.
WINEDEBUG=${WINEDEBUG:--all} exec /usr/lib/wine/wine64 "$@"
