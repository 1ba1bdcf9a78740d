#!/usr/bin/env bash
# One entry for users and CI.
#   ./build.sh sample     builds the library and converts the shipped sample table
#   ./build.sh test       builds and runs the whole test suite (optimised build), the long
#                         differential runs included (PALLION_LONG_TESTS)
#   ./build.sh sanitize   builds and runs the whole test suite under ASan and UBSan (vectors annotated)
#   ./build.sh ubsan      builds with clang and runs the whole test suite under UBSan, float-cast-overflow included
#   ./build.sh static     builds static libraries, runs the whole suite, and builds the separate project against them
#   ./build.sh symbols [--update]
#                         compares the symbols each shared library exports with the lists in abi/
#                         (--update rewrites the lists from this build)
#   ./build.sh tsan       builds and runs the whole test suite under ThreadSanitizer
#   ./build.sh fuzz [S]   builds the fuzz targets and runs each for S seconds (60), failing on a finding
#   ./build.sh bench      builds and runs the benchmarks
#   ./build.sh faults     builds the host and injects faults into its writes: a full disk (a 1 MiB tmpfs,
#                         root only) and INT, TERM, HUP while converting and writing (scripts/faults.sh)
#   ./build.sh consumer   installs into a temporary prefix and builds a separate project
#                         against it with find_package, with pkg-config, then again with add_subdirectory
#   ./build.sh package    makes the Debian packages, checks them and builds the separate project against their contents
#   ./build.sh wheel      pip-installs the Python package from a fresh clone into a venv (offline, Debian's
#                         packages), checks its version, contents and stubs (mypy --strict, stubtest)
#   ./build.sh lint       checks the formatting (clang-format) and the code of the library and host (clang-tidy)
#   ./build.sh layout     checks the folder rules (which folder may include which; docs/design.md)
# Missing tools are installed from Debian's packages first (needs root).
set -euo pipefail
cd "$(dirname "$0")"

install_missing() {
    local need=()
    command -v g++ >/dev/null || need+=(g++)
    command -v cmake >/dev/null || need+=(cmake)
    command -v ninja >/dev/null || need+=(ninja-build)
    command -v pkg-config >/dev/null || need+=(pkg-config)
    command -v dpkg-shlibdeps >/dev/null || need+=(dpkg-dev)
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
    [ -f /usr/include/hdf5/serial/hdf5.h ] || [ -f /usr/include/hdf5.h ] || need+=(libhdf5-dev)
    [ -f /usr/include/archive.h ] || need+=(libarchive-dev)
    [ -f /usr/include/zlib.h ] || need+=(zlib1g-dev)
    [ -f /usr/include/isa-l/igzip_lib.h ] || need+=(libisal-dev)
    [ -f /usr/include/zstd.h ] || need+=(libzstd-dev)
    command -v help2man >/dev/null || need+=(help2man)
    # EPSG codes as WKT in LAS files, and the LAS reader of the tests (npm's copc under Debian's nodejs).
    [ -f /usr/include/proj.h ] || need+=(libproj-dev)
    [ -f /usr/share/proj/proj.db ] || need+=(proj-data)
    command -v node >/dev/null || need+=(nodejs)
    command -v npm >/dev/null || need+=(npm)
    [ -d /usr/share/bash-completion ] || need+=(bash-completion)
    # The tests that read the host's output files back: Debian's Python with Open3D and h5py.
    /usr/bin/python3 -c "import h5py" 2>/dev/null || need+=(python3-h5py)
    /usr/bin/python3 -c "import open3d" 2>/dev/null || need+=(python3-open3d)
    [ -f /usr/share/i18n/locales/de_DE ] || need+=(locales)
    # The Python package: Debian's python3 and the packages apt serves it.
    [ -f /usr/lib/cmake/pybind11/pybind11Config.cmake ] || need+=(pybind11-dev)
    /usr/bin/python3-config --includes >/dev/null 2>&1 || need+=(python3-dev)
    /usr/bin/python3 -c "import mypy" 2>/dev/null || need+=(python3-mypy)
    for module in numpy pandas pytest dask distributed; do
        /usr/bin/python3 -c "import $module" >/dev/null 2>&1 || need+=("python3-$module")
    done
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
    # copc in a scratch folder under build/ (never committed); the LAS tests skip without it.
    if [ ! -d build/npm/node_modules/copc ] && command -v npm >/dev/null; then
        mkdir -p build/npm
        npm install --silent --no-audit --no-fund --prefix build/npm copc >/dev/null 2>&1 ||
            echo "npm could not install copc: the LAS read-back tests will be skipped" >&2
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

# Checks an installed tree ($1, the prefix): the library's public headers and
# no internal one, the stand-ins' headers under pallion-outside/ only, and a
# pkg-config file with nothing but -I, -L and -l; then builds the separate
# project against it with find_package ($2: build folder) and with pkg-config.
check_installed() {
    local include="$1/include" bad=0
    [ -f "$include/pallion/Pallion.hpp" ] || { echo "not installed: pallion/Pallion.hpp"; bad=1; }
    if find "$include/pallion" -path '*/detail/*' | grep .; then echo "internal headers installed (above)"; bad=1; fi
    for standin in ravelin tessel gridnotes tellus riegl; do
        [ ! -e "$include/$standin" ] || { echo "stand-in headers at the top of include/: $standin"; bad=1; }
        [ -d "$include/pallion-outside/$standin" ] || { echo "stand-in headers missing: pallion-outside/$standin"; bad=1; }
    done
    local pc
    pc=$(find "$1/lib" -path '*/pkgconfig/pallion.pc' | head -n 1)
    export PKG_CONFIG_PATH
    PKG_CONFIG_PATH=$(dirname "$pc")
    if pkg-config --cflags --libs pallion | tr ' ' '\n' | grep -Ev '^(-I|-L|-l|$)'; then
        echo "pallion.pc gives more than -I, -L and -l (above)"; bad=1
    fi
    [ "$bad" -eq 0 ] || exit 1
    consume "-DCMAKE_PREFIX_PATH=$1" "$2"
    # The pkg-config file, for hosts that do not build with CMake.
    g++ -std=c++20 $(pkg-config --cflags pallion) tests/consumer/Consumer.cpp $(pkg-config --libs pallion) \
        -o "$2-pkgconfig"
    LD_LIBRARY_PATH="$(pkg-config --variable=libdir pallion)" "$2-pkgconfig"
}

# The demangled symbols that a shared library exports, one a line, without addresses.
exported() {
    nm -D --defined-only -C "$1" | sed -E 's/^[0-9a-f]+ //' | LC_ALL=C sort -u
}

# Configures and builds a preset ($1), with further cache settings (-D...) after it.
build() {
    cmake --preset "$1" "${@:2}" >/dev/null
    cmake --build --preset "$1"
}

case "${1:-}" in
    sample)
        install_missing
        # Only what the sample needs: the library, its helpers and the host.
        echo "Building the library and the command-line host (build/release) ..." >&2
        cmake --preset release >/dev/null
        cmake --build --preset release --target pallion_host
        ./build/release/apps/pallion/pallion --header 1 \
            --parse "Positions:point:0+1+2,Colours:rgb:3+4+5,Intensity:float:6,Class:uint8_t:7,Return:int:8" \
            --block 2000 --epsg 25832 examples/data/sample_points.txt
        ;;
    trajectory)
        install_missing
        echo "Building the library and the command-line host (build/release) ..." >&2
        cmake --preset release >/dev/null
        cmake --build --preset release --target pallion_host
        ./build/release/apps/pallion/pallion --trajectory examples/data/trajectory/*
        ;;
    test)
        install_missing
        build release -DPALLION_PYTHON=ON -DPALLION_LONG_TESTS=ON  # the Python tests are never left out
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
        for target in parse_string number convert ranges trajectory_name trajectory_readers; do
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
    faults)
        install_missing
        cmake --preset release >/dev/null
        cmake --build --preset release --target pallion_host
        scripts/faults.sh "$PWD/build/release/apps/pallion/pallion"
        ;;
    bench)
        install_missing
        build release
        ./build/release/bench/wrap_bench
        ./build/release/bench/convert_bench
        ./build/release/bench/fragment_bench
        ./build/release/bench/write_bench
        ;;
    consumer)
        install_missing
        build release >/dev/null
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        cmake --install build/release --prefix "$scratch/prefix" >/dev/null
        check_installed "$scratch/prefix" "$scratch/find"
        consume "-DPALLION_SOURCE_DIR=$PWD" "$scratch/subdirectory"
        # The Python package from the fresh prefix, with Debian's python3, away from the source tree.
        root=$PWD
        (cd "$scratch" && PYTHONPATH="$scratch/prefix/lib/python3/dist-packages" /usr/bin/python3 -B \
            "$root/examples/python/read_sample.py" "$root/examples/data/sample_points.txt" >/dev/null)
        echo "python3: pallion imported from the install prefix"
        ;;
    static)
        install_missing
        build static
        ctest --preset static
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        cmake --install build/static --prefix "$scratch/prefix" >/dev/null
        # The registration at load must reach a host that links the archives.
        consume "-DCMAKE_PREFIX_PATH=$scratch/prefix" "$scratch/find"
        ;;
    ubsan)
        install_missing
        build ubsan
        ctest --preset ubsan
        ;;
    symbols)
        install_missing
        build release >/dev/null
        mkdir -p abi
        failed=0
        for library in build/release/lib*.so; do
            name=$(basename "$library" .so)
            if [ "${2:-}" = --update ]; then
                exported "$library" >"abi/$name.txt"
            elif ! diff -u --label "abi/$name.txt (kept)" --label "$library (built)" "abi/$name.txt" \
                    <(exported "$library"); then
                failed=1
            fi
        done
        if [ "$failed" -ne 0 ]; then
            echo "exported symbols differ from abi/ (above); if the change is meant, run ./build.sh symbols --update"
            exit 1
        fi
        echo "exported symbols: as listed in abi/ ($(ls abi | wc -l) libraries)"
        ;;
    package)
        install_missing
        build release >/dev/null
        rm -rf build/release/packages
        (cd build/release && cpack -G DEB >/dev/null)
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
        for deb in build/release/packages/*.deb; do
            package=$(dpkg-deb --field "$deb" Package)
            echo "$(basename "$deb"): $(dpkg-deb --field "$deb" Depends)"
            # The listing read whole first: grep -q would close the pipe early.
            listing=$(dpkg-deb -c "$deb")
            grep -q "./usr/share/doc/$package/copyright$" <<<"$listing" ||
                { echo "$package: no copyright file"; exit 1; }
            if grep -E '\.(so|a)(\.[0-9.]+)?$' <<<"$listing" | grep -v -e "/usr/lib/$multiarch/" -e "/usr/lib/python3/dist-packages/"; then
                echo "$package: a library outside /usr/lib/$multiarch and the Python package folder (above)"; exit 1
            fi
            dpkg-deb -x "$deb" "$scratch/root"
        done
        check_installed "$scratch/root/usr" "$scratch/find"
        root=$PWD
        (cd "$scratch" && PYTHONPATH="$scratch/root/usr/lib/python3/dist-packages" \
            /usr/bin/python3 -B \
            "$root/examples/python/read_sample.py" "$root/examples/data/sample_points.txt" >/dev/null)
        echo "python3: pallion imported from the packages' contents"
        ;;
    wheel)
        install_missing
        root=$PWD
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        git clone -q . "$scratch/clone"
        /usr/bin/python3 -m venv --system-site-packages "$scratch/venv"
        (cd "$scratch/clone" && "$scratch/venv/bin/pip" install -q --no-build-isolation --no-index .)
        # Imported from the venv, away from the source tree, with no library path set.
        (cd "$scratch" && env -u LD_LIBRARY_PATH -u PYTHONPATH "$scratch/venv/bin/python" - "$root" <<'PY'
import importlib.metadata, os, re, sys
import pallion
version = re.search(r"project\(\s*Pallion\s+VERSION\s+([0-9.]+)", open(os.path.join(sys.argv[1], "CMakeLists.txt")).read())[1]
assert pallion.__version__ == importlib.metadata.version("pallion") == version, (pallion.__version__, version)
files = {str(f) for f in importlib.metadata.files("pallion")}
for wanted in ("pallion/py.typed", "pallion/_pallion.pyi", "pallion/_errors.py", "pallion/_version.py"):
    assert wanted in files, wanted
assert any(re.fullmatch(r"pallion/_pallion\..*\.so", f) for f in files)
grid = pallion.read_table(os.path.join(sys.argv[1], "examples", "data", "sample_points.txt"))
assert len(grid["Positions"]) == 3000, grid
print("wheel: pallion", pallion.__version__, "from", os.path.dirname(pallion.__file__))
PY
        )
        # The stubs against the installed module, and the package and examples against the stubs.
        (cd "$scratch" && "$scratch/venv/bin/python" -m mypy.stubtest --mypy-config-file "$scratch/clone/pyproject.toml" \
            --allowlist "$scratch/clone/python/stubtest-allowlist.txt" pallion._pallion)
        (cd "$scratch/clone" && "$scratch/venv/bin/python" -m mypy --strict --config-file pyproject.toml \
            python/pallion examples/python)
        echo "wheel: installed, version, contents and stubs checked"
        ;;
    lint)
        install_missing
        cmake --preset release >/dev/null  # the compile commands clang-tidy reads
        git ls-files '*.hpp' '*.cpp' | xargs clang-format --dry-run --Werror
        run-clang-tidy -p build/release -quiet '/(src|tools|apps|outside)/.*\.cpp$' >/tmp/pallion-tidy.log 2>&1 ||
            { grep -E "(warning|error):" /tmp/pallion-tidy.log | sort -u; exit 1; }
        echo "clang-format and clang-tidy: clean"
        ;;
    layout)
        /usr/bin/python3 scripts/check_layout.py
        ;;
    *)
        sed -n '2,20p' "$0"
        exit 2
        ;;
esac
