#!/usr/bin/env bash
# Installs a built tree in two layouts and checks each: the host stand-ins lie
# only in their private folders, the installed tool runs, and a small consumer
# builds and runs twice, with find_package and with pkg-config. Where the
# build made the kovani-utils(1) man page (scdoc found), it must be installed
# and man must show its sections.
#   prefix:    BUILD_DIR installed with --prefix into a scratch folder
#   multiarch: a second build of the same sources for prefix /usr and
#              lib/<multiarch>, installed through DESTDIR (tests and
#              benchmarks left out)
# Usage: cmake/check-consumer.sh BUILD_DIR
set -euo pipefail
build=$(realpath "$1")
consumer=$(cd "$(dirname "$0")/.." && pwd)/proprietary/modem/hal/utils/test/consumer
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
cxx=$(cached CMAKE_CXX_COMPILER)
# Only the installed files are to be found, never the build trees.
run() { env -u LD_LIBRARY_PATH "$@"; }

# The man page is made where the tool is built and scdoc was found.
man_page_built() { [ -n "$(cached KOVANI_SCDOC)" ] && [[ "$(cached KOVANI_SCDOC)" != *-NOTFOUND ]]; }
mandir=$(cached CMAKE_INSTALL_MANDIR)
mandir=${mandir:-share/man}

# check_man_page PAGE: installed, and man shows its NAME, SYNOPSIS and EXIT STATUS.
check_man_page() {
  local page=$1 shown heading
  [ -f "$page" ] || { echo "missing: $page" >&2; return 1; }
  command -v man > /dev/null || { echo "man not found (Debian's man-db provides it)" >&2; return 1; }
  shown=$(MANWIDTH=80 man -l "$page" | col -b)
  for heading in NAME SYNOPSIS 'EXIT STATUS'; do
    grep -qx "$heading" <<< "$shown" ||
      { echo "man -l $page shows no $heading section" >&2; return 1; }
  done
}

# check_layout NAME PREFIX LIBDIR: PREFIX is where the files landed.
check_layout() {
  local name=$1 prefix=$2 libdir=$3
  echo "-- $name layout: $libdir"
  local private_lib=$prefix/$libdir/kovani_utils private_include=$prefix/include/kovani_utils/host
  local file
  for file in "$private_lib/libcutils.so" "$private_lib/libqcrilNrQtiMutex.so" \
      "$private_include/cutils/properties.h" "$private_include/QtiMutex.h" \
      "$private_include/kovani_host_properties.h"; do
    [ -f "$file" ] || { echo "missing: $file" >&2; return 1; }
  done
  local strays
  strays=$(find "$prefix" \( -name 'libcutils.so*' -o -name 'libqcrilNrQtiMutex.so*' \
      -o -name properties.h -o -name QtiMutex.h -o -name kovani_host_properties.h \) \
    ! -path "$private_lib/*" ! -path "$private_include/*")
  if [ -n "$strays" ]; then
    printf 'stand-ins outside their private folders:\n%s\n' "$strays" >&2
    return 1
  fi
  [ ! -e "$prefix/include/cutils" ] || { echo "$prefix/include/cutils exists" >&2; return 1; }

  if [ -x "$prefix/bin/kovani-utils" ]; then
    run "$prefix/bin/kovani-utils" info > /dev/null
    if man_page_built; then
      check_man_page "$prefix/$mandir/man1/kovani-utils.1"
    else
      echo "-- no man page to check: the build found no scdoc"
    fi
  fi

  local out=$scratch/$name
  cmake -S "$consumer" -B "$out/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
  local found
  found=$(sed -n 's/^kovani_utils_DIR:PATH=//p' "$out/cmake/CMakeCache.txt")
  [ "$found" = "$prefix/$libdir/cmake/kovani_utils" ] ||
    { echo "find_package found $found" >&2; return 1; }
  cmake --build "$out/cmake" > /dev/null
  run "$out/cmake/consumer"

  local pkg_config=(env PKG_CONFIG_LIBDIR="$prefix/$libdir/pkgconfig" pkg-config)
  local pc_includedir pc_libdir flags
  pc_includedir=$("${pkg_config[@]}" --variable=includedir kovani_utils)
  [ -f "$pc_includedir/kovani_utils.h" ] ||
    { echo "pkg-config includedir $pc_includedir lacks kovani_utils.h" >&2; return 1; }
  pc_libdir=$("${pkg_config[@]}" --variable=libdir kovani_utils)
  flags=$("${pkg_config[@]}" --cflags --libs kovani_utils)
  # shellcheck disable=SC2086 # the flags are words
  "$cxx" -std=c++17 -Wall -Wextra -Werror "$consumer/main.cpp" $flags \
    -Wl,-rpath,"$pc_libdir" -o "$out/pkg-config-consumer"
  run "$out/pkg-config-consumer"
}

cmake --install "$build" --prefix "$scratch/prefix" > /dev/null
check_layout prefix "$scratch/prefix" "$(cached CMAKE_INSTALL_LIBDIR)"

multiarch=lib/$("$cxx" -print-multiarch)
[ "$multiarch" != lib/ ] || { echo "$cxx names no multiarch folder" >&2; exit 1; }
cmake -S "$(cached CMAKE_HOME_DIRECTORY)" -B "$scratch/multiarch-build" -G Ninja \
  -DCMAKE_BUILD_TYPE="$(cached CMAKE_BUILD_TYPE)" -DCMAKE_CXX_COMPILER="$cxx" \
  -DCMAKE_CXX_FLAGS="$(cached CMAKE_CXX_FLAGS)" \
  -DKOVANI_BUILD_TOOLS="$(cached KOVANI_BUILD_TOOLS)" \
  -DKOVANI_BUILD_TESTS=OFF -DKOVANI_BUILD_BENCHMARKS=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="$multiarch" > /dev/null
cmake --build "$scratch/multiarch-build" > /dev/null
DESTDIR="$scratch/destdir" cmake --install "$scratch/multiarch-build" > /dev/null
check_layout multiarch "$scratch/destdir/usr" "$multiarch"
