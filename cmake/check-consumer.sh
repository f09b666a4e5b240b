#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds and runs a small
# consumer against it twice: with find_package and with pkg-config.
# Usage: cmake/check-consumer.sh BUILD_DIR
set -euo pipefail
build=$(realpath "$1")
source_dir=$(cd "$(dirname "$0")/.." && pwd)/proprietary/modem/hal/utils/test/consumer
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/prefix" > /dev/null

cmake -S "$source_dir" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" > /dev/null
cmake --build "$scratch/cmake" > /dev/null
"$scratch/cmake/consumer"

pc_dir=$(dirname "$(find "$scratch/prefix" -name kovani_utils.pc)")
flags=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs kovani_utils)
libdir=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --variable=libdir kovani_utils)
g++ -std=c++17 "$source_dir/main.cpp" $flags -Wl,-rpath,"$libdir" -o "$scratch/pkg-config-consumer"
"$scratch/pkg-config-consumer"
