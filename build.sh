#!/usr/bin/env bash
# One entry for users and CI.
#   ./build.sh sample     builds the library and converts the shipped sample table
#   ./build.sh test       builds and runs the whole test suite (optimised build)
#   ./build.sh sanitize   builds and runs the whole test suite under ASan and UBSan
#   ./build.sh bench      builds and runs the benchmarks
# Missing tools are installed from Debian's packages first (needs root).
set -euo pipefail
cd "$(dirname "$0")"

install_missing() {
    local need=()
    command -v g++ >/dev/null || need+=(g++)
    command -v cmake >/dev/null || need+=(cmake)
    command -v ninja >/dev/null || need+=(ninja-build)
    [ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
    [ -f /usr/include/gmock/gmock.h ] || need+=(libgmock-dev)
    [ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
    [ -f /usr/include/fast_float/fast_float.h ] || need+=(libfast-float-dev)
    [ -f /usr/share/i18n/locales/de_DE ] || need+=(locales)
    if [ ${#need[@]} -gt 0 ]; then
        echo "Installing from Debian's packages: ${need[*]}" >&2
        if [ "$(id -u)" -ne 0 ]; then
            echo "Missing packages (${need[*]}); run this command as root to install them." >&2
            exit 1
        fi
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        apt-get install -y -qq "${need[@]}" >/dev/null
    fi
    # The tests of a decimal-comma locale need one; they skip where it is missing.
    if ! locale -a 2>/dev/null | grep -qix 'de_DE.utf8' && [ "$(id -u)" -eq 0 ]; then
        localedef -i de_DE -f UTF-8 de_DE.UTF-8 >/dev/null 2>&1 || true
    fi
}

build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1"
}

case "${1:-}" in
    sample)
        install_missing
        build release >/dev/null
        ./build/release/examples/pallion_host --header 1 \
            --parse "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6,Class:uint8_t:7,Return:int:8" \
            --block 2000 --epsg 25832 examples/data/sample_points.txt
        ;;
    trajectory)
        install_missing
        build release >/dev/null
        ./build/release/examples/pallion_host --trajectory examples/data/trajectory/*
        ;;
    test)
        install_missing
        build release
        ctest --preset release
        ;;
    sanitize)
        install_missing
        build sanitize
        ctest --preset sanitize
        ;;
    bench)
        install_missing
        build release
        ./build/release/bench/wrap_bench
        ./build/release/bench/convert_bench
        ;;
    *)
        sed -n '2,7p' "$0"
        exit 2
        ;;
esac
