#!/usr/bin/env bash
# One entry for users and CI.
#   ./build.sh sample     builds the library and converts the shipped sample table
#   ./build.sh test       builds and runs the whole test suite (optimised build), the long
#                         differential runs included (PALLION_LONG_TESTS)
#   ./build.sh sanitize   builds and runs the whole test suite under ASan and UBSan
#   ./build.sh tsan       builds and runs the whole test suite under ThreadSanitizer
#   ./build.sh fuzz [S]   builds the fuzz targets and runs each for S seconds (60), failing on a finding
#   ./build.sh bench      builds and runs the benchmarks
#   ./build.sh consumer   installs into a temporary prefix and builds a separate project
#                         against it with find_package, then again with add_subdirectory
#   ./build.sh package    makes the Debian package and builds the separate project against its contents
#   ./build.sh lint       checks the formatting (clang-format) and the code of the library and host (clang-tidy)
# Missing tools are installed from Debian's packages first (needs root).
set -euo pipefail
cd "$(dirname "$0")"

install_missing() {
    local need=()
    command -v g++ >/dev/null || need+=(g++)
    command -v cmake >/dev/null || need+=(cmake)
    command -v ninja >/dev/null || need+=(ninja-build)
    command -v pkg-config >/dev/null || need+=(pkg-config)
    command -v clang++ >/dev/null || need+=(clang)
    ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 || need+=(libclang-rt-dev)
    command -v clang-format >/dev/null || need+=(clang-format)
    command -v run-clang-tidy >/dev/null || need+=(clang-tidy)
    [ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
    [ -f /usr/include/gmock/gmock.h ] || need+=(libgmock-dev)
    [ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
    [ -f /usr/include/fast_float/fast_float.h ] || need+=(libfast-float-dev)
    [ -f /usr/include/CLI/CLI.hpp ] || need+=(libcli11-dev)
    [ -f /usr/include/png.h ] || need+=(libpng-dev)
    [ -f /usr/include/nlohmann/json.hpp ] || need+=(nlohmann-json3-dev)
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

# Configures, builds and runs the separate project of tests/consumer with the
# given way of finding the library ($1) in the build folder $2.
consume() {
    cmake -S tests/consumer -B "$2" -G Ninja -DCMAKE_BUILD_TYPE=Release "$1" >/dev/null
    cmake --build "$2" >/dev/null
    "$2/consumer"
}

# Configures and builds a preset ($1), with further cache settings (-D...) after it.
build() {
    cmake --preset "$1" "${@:2}" >/dev/null
    cmake --build --preset "$1"
}

case "${1:-}" in
    sample)
        install_missing
        build release >/dev/null
        ./build/release/examples/pallion --header 1 \
            --parse "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6,Class:uint8_t:7,Return:int:8" \
            --block 2000 --epsg 25832 examples/data/sample_points.txt
        ;;
    trajectory)
        install_missing
        build release >/dev/null
        ./build/release/examples/pallion --trajectory examples/data/trajectory/*
        ;;
    test)
        install_missing
        build release -DPALLION_LONG_TESTS=ON
        ctest --preset release
        ;;
    sanitize)
        install_missing
        build sanitize -DPALLION_LONG_TESTS=ON
        ctest --preset sanitize
        ;;
    tsan)
        install_missing
        build tsan -DPALLION_LONG_TESTS=ON
        ctest --preset tsan
        ;;
    fuzz)
        install_missing
        build fuzz >/dev/null
        seconds=${2:-60}
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        for target in parse_string number convert trajectory_name trajectory_readers; do
            # New inputs go to a scratch copy of the corpus; the committed corpus stays as it is.
            mkdir -p "$scratch/$target" build/fuzz/findings
            cp fuzz/corpus/$target/* "$scratch/$target/"
            if ! "build/fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=2 -rss_limit_mb=3072 \
                    -max_len=8192 -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$target-" \
                    "$scratch/$target" >"$scratch/$target.log" 2>&1; then
                tail -n 40 "$scratch/$target.log"
                echo "fuzz_$target: finding, kept in build/fuzz/findings/ (see the log above)"
                exit 1
            fi
            echo "fuzz_$target: $(grep -E '^stat::number_of_executed_units' "$scratch/$target.log" | awk '{print $2}') executions in ${seconds} s, no finding"
        done
        ;;
    bench)
        install_missing
        build release
        ./build/release/bench/wrap_bench
        ./build/release/bench/convert_bench
        ;;
    consumer)
        install_missing
        build release >/dev/null
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        cmake --install build/release --prefix "$scratch/prefix" >/dev/null
        consume "-DCMAKE_PREFIX_PATH=$scratch/prefix" "$scratch/find"
        consume "-DPALLION_SOURCE_DIR=$PWD" "$scratch/subdirectory"
        # The pkg-config file, for hosts that do not build with CMake.
        export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
        g++ $(pkg-config --cflags pallion) tests/consumer/Consumer.cpp $(pkg-config --libs pallion) -o "$scratch/pkgconfig"
        "$scratch/pkgconfig"
        ;;
    package)
        install_missing
        build release >/dev/null
        rm -rf build/release/packages
        (cd build/release && cpack -G DEB >/dev/null)
        deb=$(ls build/release/packages/*.deb)
        echo "$deb"
        dpkg-deb --field "$deb" Package Version Depends
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        dpkg-deb -x "$deb" "$scratch/root"
        consume "-DCMAKE_PREFIX_PATH=$scratch/root/usr" "$scratch/find"
        ;;
    lint)
        install_missing
        cmake --preset release >/dev/null  # the compile commands clang-tidy reads
        git ls-files '*.hpp' '*.cpp' | xargs clang-format --dry-run --Werror
        run-clang-tidy -p build/release -quiet '/(src|outside|examples)/.*\.cpp$' >/tmp/pallion-tidy.log 2>&1 ||
            { grep -E "(warning|error):" /tmp/pallion-tidy.log | sort -u; exit 1; }
        echo "clang-format and clang-tidy: clean"
        ;;
    *)
        sed -n '2,14p' "$0"
        exit 2
        ;;
esac
