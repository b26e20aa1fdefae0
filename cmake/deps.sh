#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages a job needs and the machine lacks.
# Usage: cmake/deps.sh GROUP...   groups: main test bench
set -euo pipefail

packages() {
  case "$1" in
    main)  echo cmake ninja-build g++ googletest bison re2c libjpeg62-turbo-dev ;;
    test)  echo cmake ninja-build g++ googletest bison re2c libjpeg62-turbo-dev g++-multilib qemu-user \
                g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix wine64 \
                libeigen3-dev clang-format clang-tidy clang-14 libclang-rt-14-dev python3-pil xvfb xauth \
                binutils binutils-mingw-w64-x86-64 binutils-mingw-w64-i686 ;;
    bench) echo cmake ninja-build g++ bison re2c python3 flex libbenchmark-dev libmimalloc-dev libjemalloc-dev \
                libgoogle-perftools-dev libeigen3-dev zlib1g-dev liblz4-dev libzstd-dev \
                libphysfs-dev zip libpixman-1-dev libstb-dev libjpeg62-turbo-dev libturbojpeg0-dev \
                libspdlog-dev libbackward-cpp-dev libconfig++-dev libyaml-cpp-dev libtomlplusplus-dev rapidjson-dev ;;
    *) echo "unknown group $1" >&2; exit 2 ;;
  esac
}

wanted=()
for group in "$@"; do
  for p in $(packages "$group"); do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || wanted+=("$p")
  done
done
[ ${#wanted[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "Installing: ${wanted[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${wanted[@]}" >/dev/null
