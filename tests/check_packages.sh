#!/usr/bin/env bash
# Makes the Debian packages, installs them into a root folder of their own, builds a project on them with CMake and with
# make, uses what came out, and takes the packages away again. Needs no rights, and changes nothing on the machine.
#   CXX=<compiler> CXXFLAGS=<flags> check_packages.sh <source folder> <build folder> <folder for its files>
set -euo pipefail
source_dir=$1 build=$2 work=$3
root=$work/root

fail() {
  echo "$*" >&2
  exit 1
}

# Runs a command, and shows what it printed when it fails.
quietly() {
  "$@" > "$work/output" 2>&1 || { cat "$work/output" >&2; fail "failed: $*"; }
}

# dpkg as on a machine that has all of this one's packages installed. The scripts of the packages run here, with an
# ldconfig that only keeps a note.
prepare_root() {
  mkdir -p "$root" "$work"/admin/{info,updates,triggers} "$work/bin"
  cp /var/lib/dpkg/status "$work/admin/status"
  printf '#!/bin/sh\necho called >> "%s"\n' "$work/ldconfig" > "$work/bin/ldconfig"
  chmod +x "$work/bin/ldconfig"
  export PATH=$work/bin:$PATH:/usr/sbin:/sbin
}

run_dpkg() {
  dpkg --instdir="$root" --admindir="$work/admin" --log="$work/dpkg.log" --force-not-root --force-script-chrootless "$@"
}

make_packages() {
  (cd "$build" && quietly cpack -G DEB -B "$work/packages")
  library=$(echo "$work"/packages/libvk.tq.commonlib1_*.deb)
  development=$(echo "$work"/packages/libvk.tq.commonlib-dev_*.deb)
  tools=$(echo "$work"/packages/tqctl_*.deb)
}

check_dependencies() {
  local needed depends
  depends=$(dpkg-deb -f "$library" Depends)
  for needed in libacl1 libcurl4 libfmt9 libspdlog libssl3 libstdc++6 libxml2; do
    [[ $depends == *$needed* ]] || fail "the library does not depend on $needed: $depends"
  done
  if run_dpkg -i "$tools" > "$work/output" 2>&1; then fail 'tqctl could be installed without the library'; fi
  run_dpkg -P --force-remove-reinstreq tqctl > "$work/output" 2>&1
}

# What the packages bring is what `cmake --install` brings.
check_contents() {
  quietly cmake --install "$build" --prefix "$work/prefix"
  diff <(cd "$work/prefix" && find . ! -type d | sort) <(cd "$root/usr" && find . ! -type d | sort) >&2 ||
    fail 'an installation and the packages do not hold the same files'
  grep -q called "$work/ldconfig" || fail 'installing the library did not run ldconfig'
}

# Every header, as a program with strict warnings sees it. The list of the system's settings is no header by itself.
check_headers() {
  local include=$root/usr/include/vk.tq.commonlib
  (cd "$include" && find . -name '*.h' ! -name system_setting_items.h | sed 's|^\./\(.*\)|#include "\1"|') \
    > "$work/headers.cpp"
  quietly ${CXX:-c++} -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -I"$include" \
    "$work/headers.cpp"
}

check_program() {
  mkdir -p "$work"/tq/{c/Jobs,common}
  local output
  output=$(TQ_COMMON_APPDATA=$work/tq/common TQ_VOLUMES=$work/tq LD_LIBRARY_PATH=$(dirname "$pkgconfig") LC_ALL=C.UTF-8 \
    "$1") || fail "$1 failed: $output"
  [ "$output" = 'status 5, user 山田' ] || fail "$1 printed: $output"
  readelf -d "$1" | grep -q 'NEEDED.*\[libvk.tq.commonlib.so.1\]' || fail "$1 does not need libvk.tq.commonlib.so.1"
}

check_projects() {
  pkgconfig=$(dirname "$(find "$root" -name vk_tq_commonlib.pc)")
  quietly cmake -S "$source_dir/examples/hold_job" -B "$work/by_cmake" -DCMAKE_PREFIX_PATH="$root/usr" \
    -DCMAKE_CXX_FLAGS="${CXXFLAGS:-}"
  quietly cmake --build "$work/by_cmake"
  check_program "$work/by_cmake/hold_job"

  mkdir "$work/by_make"
  cp "$source_dir"/examples/hold_job/{hold_job.cpp,Makefile} "$work/by_make"
  quietly make -C "$work/by_make" PKG_CONFIG_PATH="$pkgconfig"
  check_program "$work/by_make/hold_job"
}

check_tool() {
  local version
  version=$("$root/usr/bin/tqctl" --version)
  [[ $version == *"$(dpkg-deb -f "$tools" Version | cut -d- -f1)"* ]] || fail "tqctl --version printed: $version"
  bash -n "$root/usr/share/bash-completion/completions/tqctl"
  grep -q '^\.Dt TQCTL 1' "$root/usr/share/man/man1/tqctl.1" || fail 'the manual page of tqctl has no title'
}

rm -rf "$work"
mkdir -p "$work"
prepare_root
make_packages
check_dependencies
quietly run_dpkg -i "$library" "$development" "$tools"
check_contents
check_headers
check_projects
check_tool
quietly run_dpkg -P tqctl libvk.tq.commonlib-dev libvk.tq.commonlib1
left=$(find "$root" -mindepth 1)
[ -z "$left" ] || fail "the packages left behind: $left"
rm -rf "$work"
