"""The host's LAS files read back by npm's copc (through las_read.js under Debian's nodejs), against the text they
came from.  Run by ctest as: /usr/bin/python3 las_outputs.py PALLION NODE_MODULES REAL_DATA_DIR; exits with 77
(skipped) where node, copc or numpy is missing."""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    import numpy as np
except ImportError as missing:
    print(f"skipped: {missing}")
    sys.exit(77)

HOST, MODULES, REAL = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
READER = pathlib.Path(__file__).with_name("las_read.js")
if shutil.which("node") is None or not (pathlib.Path(MODULES) / "copc").is_dir():
    print(f"skipped: node or {MODULES}/copc missing (./build.sh test installs it)")
    sys.exit(77)
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAILED:", what)


def run(*arguments):
    return subprocess.run([HOST, "-q", *arguments], capture_output=True, text=True)


def read(las):
    result = subprocess.run(["node", READER, MODULES, las], capture_output=True, text=True)
    check(result.returncode == 0, f"copc reads {las}: {result.stderr}")
    return json.loads(result.stdout) if result.returncode == 0 else None


def write_table(name, header, columns):
    """columns: lists of tokens (texts), one list per column."""
    lines = [" ".join(header)] + [" ".join(row) for row in zip(*columns)]
    pathlib.Path(name).write_text("\n".join(lines) + "\n")


def decimal_tokens(rng, n, decimals, low, high, negative=False):
    """Tokens with exactly `decimals` decimals, the last one not 0 on the first row, so that it counts."""
    steps = rng.integers(int(low * 10**decimals), int(high * 10**decimals), n)
    steps[0] = steps[0] // 10 * 10 + 7
    if negative:
        steps = -steps
    return [f"{'-' if s < 0 else ''}{abs(s) // 10**decimals}" + (f".{abs(s) % 10**decimals:0{decimals}d}"
                                                                   if decimals else "") for s in steps]


def exact(tokens, values, decimals, axis, case):
    back = [f"{v:.{decimals}f}" for v in values]
    wrong = [(t, b) for t, b in zip(tokens, back) if t != b and not (float(t) == 0 and float(b) == 0)]
    check(not wrong, f"{case}: {axis} reads back as written at {decimals} decimals; first misses: {wrong[:3]}")


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    rng = np.random.default_rng(28)
    n = 300

    # Coordinates of 0 to 9 decimals (x), negative ones (y) and UTM northings of 3 decimals (z), in many fragments:
    # the scale is 10^-d and every value comes back as its token.
    for d in range(10):
        span = min(1000.0, 0.9 * 2**31 / 10**d)  # 2^31 steps of 1e-9 are 2.1 units
        xs = decimal_tokens(rng, n, d, 10.0, 10.0 + span)
        ys = decimal_tokens(rng, n, min(d, 6), 5.0, 1500.0, negative=True)
        zs = decimal_tokens(rng, n, 3, 5_800_000, 5_801_000)
        write_table("c.txt", ["X", "Y", "Z"], [xs, ys, zs])
        result = run("--block", "17", "-o", "c.las", "c.txt")
        check(result.returncode == 0 and result.stderr == "", f"{d} decimals: status {result.returncode} {result.stderr}")
        las = read("c.las") if result.returncode == 0 else None
        if las is None:
            continue
        h = las["header"]
        check(h["scale"] == [10.0**-d, 10.0**-min(d, 6), 0.001], f"{d} decimals: scales {h['scale']}")
        check(h["pointCount"] == n and h["pointCountByReturn"][0] == n, f"{d} decimals: counts")
        for axis, tokens, decimals in (("X", xs, d), ("Y", ys, min(d, 6)), ("Z", zs, 3)):
            exact(tokens, las["dimensions"][axis], decimals, axis, f"{d} decimals")
            values = las["dimensions"][axis]
            i = "XYZ".index(axis)
            check(h["min"][i] == min(values) and h["max"][i] == max(values), f"{d} decimals: {axis} bounds")
            check(abs(h["offset"][i] / h["scale"][i] - round(h["offset"][i] / h["scale"][i])) < 1e-6,
                  f"{d} decimals: {axis} offset {h['offset'][i]} a whole number of steps")

    # Decimals that grow between blocks (0, then 2, then 5) and values that fall below the first block's: the
    # records written before are rewritten at the finer scale, and every coordinate still reads back as written.
    steps = [(20_000 - 7 * i) * 10**5 for i in range(40)] + [(15_000 - 3 * i) * 10**5 + i * 1000 for i in range(40)]
    steps += [(10_000 - 5 * i) * 10**5 + 12345 * i for i in range(40)]
    tokens = [f"{s / 10**5:.5f}".rstrip("0").rstrip(".") for s in steps]
    write_table("g.txt", ["X", "Y", "Z"], [tokens, tokens[::-1], ["-" + t for t in tokens]])
    result = run("--block", "6", "-o", "g.las", "g.txt")
    las = read("g.las") if result.returncode == 0 else None
    check(las is not None and las["header"]["scale"] == [1e-5] * 3, f"growing decimals: {result.stderr}")
    if las is not None:
        for axis, expected in (("X", tokens), ("Y", tokens[::-1]), ("Z", ["-" + t for t in tokens])):
            exact([f"{float(t):.5f}" for t in expected], las["dimensions"][axis], 5, axis, "growing decimals")

    # Every standard dimension, rgb (v * 257), and an extra-bytes column in each of the nine element types, the
    # standard ones in element types other than their own; a second point and rgb field go to the extras too, and
    # a field named like a dimension of the record gets a name of its own.
    k = 64
    table = {
        "X": decimal_tokens(rng, k, 2, 0, 100), "Y": decimal_tokens(rng, k, 2, 0, 100),
        "Z": decimal_tokens(rng, k, 2, 0, 100),
        "intensity": [str(v) for v in rng.integers(0, 65536, k)],
        "return_number": [str(v) for v in rng.integers(1, 16, k)],
        "NumberOfReturns": [str(v) for v in rng.integers(0, 16, k)],
        "CLASSIFICATION": [str(v) for v in rng.integers(0, 256, k)],
        "GPSTime": [f"{v:.6f}" for v in rng.uniform(0, 6e5, k)],
        "ScanAngle": [f"{v * 0.006:.3f}" for v in rng.integers(-30000, 30001, k)],
        "UserData": [str(v) for v in rng.integers(0, 256, k)],
        "PointSourceId": [str(v) for v in rng.integers(0, 65536, k)],
        "R": [str(v) for v in rng.integers(0, 256, k)], "G": [str(v) for v in rng.integers(0, 256, k)],
        "B": [str(v) for v in rng.integers(0, 256, k)],
        "ed": [f"{v:.17g}" for v in rng.uniform(-1e9, 1e9, k)], "ef": [f"{v:.9g}" for v in rng.uniform(-1e3, 1e3, k)],
        "ei": [str(v) for v in rng.integers(-2**31, 2**31, k)], "e8": [str(v) for v in rng.integers(0, 256, k)],
        "e16": [str(v) for v in rng.integers(0, 65536, k)], "e32": [str(v) for v in rng.integers(0, 2**31, k)],
    }
    parse = ("P:point:X+Y+Z,intensity:uint16_t:intensity,return_number:uint8_t:return_number,"
             "NumberOfReturns:int:NumberOfReturns,CLASSIFICATION:float:CLASSIFICATION,GPSTime:double:GPSTime,"
             "ScanAngle:float:ScanAngle,UserData:uint32_t:UserData,PointSourceId:double:PointSourceId,C:rgb:R+G+B,"
             "ed:double:ed,ef:float:ef,ei:int:ei,e8:uint8_t:e8,e16:uint16_t:e16,e32:uint32_t:e32,"
             "ep:point:ed+ef+ei,en:tvector:ef+ed+ei,ec:rgb:e8+R+G,z:double:ed")
    write_table("d.txt", list(table), list(table.values()))
    result = run("--header", "1", "--block", "5", "--parse", parse, "-o", "d.las", "d.txt")
    check(result.returncode == 0, f"dimensions: status {result.returncode} {result.stderr}")
    las = read("d.las") if result.returncode == 0 else None
    if las is not None:
        dims, h = las["dimensions"], las["header"]
        check(h["pointDataRecordFormat"] == 7 and h["headerLength"] == 375, "format 7, header of 375 bytes")
        check(pathlib.Path("d.las").read_bytes()[107:131] == bytes(24), "the legacy point counts are 0")
        as_ints = lambda name: [int(t) for t in table[name]]
        for dimension, column in (("Intensity", "intensity"), ("ReturnNumber", "return_number"),
                                  ("NumberOfReturns", "NumberOfReturns"), ("Classification", "CLASSIFICATION"),
                                  ("UserData", "UserData"), ("PointSourceId", "PointSourceId")):
            check(dims[dimension] == as_ints(column), f"{dimension} from the field {column}")
        check(dims["GpsTime"] == [float(t) for t in table["GPSTime"]], "GpsTime")
        check(np.allclose(dims["ScanAngle"], [float(t) for t in table["ScanAngle"]], rtol=0, atol=1e-9), "ScanAngle")
        for dimension, column in (("Red", "R"), ("Green", "G"), ("Blue", "B")):
            check(dims[dimension] == [v * 257 for v in as_ints(column)], f"{dimension} is the 8-bit value * 257")
        by_return = np.bincount(as_ints("return_number"), minlength=16)[1:].tolist()
        check(h["pointCountByReturn"] == by_return, f"by-return counts {h['pointCountByReturn']} != {by_return}")
        f32 = lambda name: [float(np.float32(t)) for t in table[name]]
        expected = {
            "ed": ("float", 8, [float(t) for t in table["ed"]]), "ef": ("float", 4, f32("ef")),
            "ei": ("signed", 4, as_ints("ei")), "e8": ("unsigned", 1, as_ints("e8")),
            "e16": ("unsigned", 2, as_ints("e16")), "e32": ("unsigned", 4, as_ints("e32")),
            "ep_x": ("float", 8, [float(t) for t in table["ed"]]), "ep_y": ("float", 8, [float(t) for t in table["ef"]]),
            "ep_z": ("float", 8, [float(t) for t in table["ei"]]), "en_x": ("float", 8, [float(t) for t in table["ef"]]),
            "en_z": ("float", 8, [float(t) for t in table["ei"]]), "ec_r": ("unsigned", 1, as_ints("e8")),
            "ec_g": ("unsigned", 1, as_ints("R")), "ec_b": ("unsigned", 1, as_ints("G")),
            "z_2": ("float", 8, [float(t) for t in table["ed"]]),  # a name of the record's own taken by no extra
        }
        described = {e["name"]: (e["type"], e["length"]) for e in las["extraBytes"]}
        for name, (kind, length, values) in expected.items():
            check(described.get(name) == (kind, length), f"extra bytes {name}: {described.get(name)}")
            check(dims.get(name) == values, f"extra bytes {name} values")
        check(h["pointDataRecordLength"] == 36 + sum(e["length"] for e in las["extraBytes"]), "record length")

    # A value outside its dimension is refused, naming the field, the element and the value; no file is left.
    write_table("o.txt", ["X", "Y", "Z", "V"], [["1"] * 3, ["2"] * 3, ["3"] * 3, ["1", "2", "3"]])
    for name, kind, bad in (("Intensity", "double", "65536"), ("Intensity", "float", "1.5"),
                            ("ReturnNumber", "int", "16"), ("NumberOfReturns", "int", "-1"),
                            ("Classification", "uint32_t", "256"), ("UserData", "int", "300"),
                            ("PointSourceId", "uint32_t", "70000"), ("ScanAngle", "double", "180.5"),
                            ("GpsTime", "double", "inf")):
        pathlib.Path("o.txt").write_text(f"X Y Z V\n1 2 3 1\n1 2 3 {bad}\n")
        result = run("--parse", f"P:point:X+Y+Z,{name}:{kind}:V", "-o", "o.las", "o.txt")
        check(result.returncode == 1 and f"field {name}, element 1, is " in result.stderr
              and name in result.stderr.split("LAS dimension")[-1],
              f"{name} = {bad} refused: {result.returncode} {result.stderr}")
        check(not pathlib.Path("o.las").exists(), f"{name} = {bad}: no file left")

    # No point field, and a range too wide for int32 at the values' decimals: refused with the numbers; with a
    # coarser --las-scale written, and the warning says by how much.
    result = run("--parse", "V:double:V", "-o", "o.las", "o.txt")
    check(result.returncode == 1 and "no point field" in result.stderr, f"no point field: {result.stderr}")
    pathlib.Path("w.txt").write_text("X Y Z\n0.000001 1 2\n5000.000002 3 4\n")
    result = run("-o", "w.las", "w.txt")
    check(result.returncode == 1 and "X spans 1e-06 to 5000.000002" in result.stderr
          and "5000000001 steps" in result.stderr and "--las-scale 1e-05" in result.stderr,
          f"too wide refused: {result.stderr}")
    result = run("--las-scale", "0.001", "-o", "w.las", "w.txt")
    check(result.returncode == 0 and "X is stored at the scale 0.001, which rounds it by up to" in result.stderr,
          f"--las-scale 0.001 written with a warning: {result.stderr}")
    las = read("w.las") if result.returncode == 0 else None
    if las is not None:
        check(las["header"]["scale"] == [0.001] * 3 and las["dimensions"]["X"] == [0.0, 5000.0], "coarse X")

    # Values of more than 9 decimals: written at 1e-9 with a warning; a range that fits no such scale: refused.
    pathlib.Path("m.txt").write_text("X Y Z\n0.1234567891 1 2\n0.5 3 4\n")
    result = run("-o", "m.las", "m.txt")
    check(result.returncode == 0 and "X holds values with more than 9 decimals; stored at the scale 1e-09" in
          result.stderr, f"more than 9 decimals: {result.stderr}")
    pathlib.Path("m.txt").write_text("X Y Z\n-1e300 1 2\n1e300 3 4\n")
    result = run("-o", "m.las", "m.txt")
    check(result.returncode == 1 and "at any scale from 1 to 1e-09; --las-scale 1e+291 fits" in result.stderr,
          f"too wide at any decimals: {result.stderr}")

    # The EPSG code as WKT from PROJ on one line, its code in the authority, with the WKT bit.
    for epsg, name in (("25832", "UTM zone 32N"), ("4326", "WGS 84")):
        result = run("--epsg", epsg, "-o", "e.las", "c.txt")
        las = read("e.las") if result.returncode == 0 else None
        check(las is not None and las["header"]["globalEncoding"] & 16 and las["wkt"] is not None
              and las["wkt"].rstrip("\0").endswith(f'AUTHORITY["EPSG","{epsg}"]]') and name in las["wkt"]
              and "\n" not in las["wkt"], f"EPSG {epsg} as WKT: {result.stderr} {las and las['wkt']}")
    result = run("-o", "e.las", "c.txt")
    las = read("e.las")
    check(las is not None and las["wkt"] is None and las["header"]["vlrCount"] == 0 and
          las["header"]["pointDataRecordFormat"] == 6, "no EPSG: no WKT record, format 6 without rgb")

    # A code PROJ does not know goes in as a GeoTIFF key, without the WKT bit, and the host says so.
    result = run("--epsg", "32767", "-o", "e.las", "c.txt")
    las = read("e.las") if result.returncode == 0 else None
    check(las is not None and "EPSG:32767 is not in PROJ's database" in result.stderr
          and las["header"]["globalEncoding"] & 16 == 0
          and [(v["userId"], v["recordId"]) for v in las["vlrs"]] == [("LASF_Projection", 34735)],
          f"unknown EPSG as a GeoTIFF key: {result.stderr}")

    # Standard input, read once, in blocks of the library's size: the same file as the blocks of 17 rows above.
    with open("c.txt") as table:
        piped = subprocess.run([HOST, "-q", "--header", "1", "-o", "s.las", "-"], stdin=table, capture_output=True)
    check(piped.returncode == 0 and pathlib.Path("s.las").read_bytes() == pathlib.Path("c.las").read_bytes(),
          f"standard input gives the file's bytes: {piped.stderr}")

    # --las-scale: one or three positive numbers, and only for a .las output.
    for arguments in (["--las-scale", "0", "-o", "e.las"], ["--las-scale", "0.1,0.1", "-o", "e.las"],
                      ["--las-scale", "0.01", "-o", "e.ply"]):
        result = run(*arguments, "c.txt")
        check(result.returncode == 2 and "--las-scale" in result.stderr, f"{arguments}: {result.stderr}")

    # Real tables: UTM coordinates of 2 decimals, and a rock face of 8 decimals at northings of 5.1e6 (11 m of
    # them fit int32 at 1e-8), exact through copc.
    for name, separator, decimals in (("pdal_utm17_1.txt", ",", 2), ("jfm_rock_face_xyzrgb.txt", " ", 8)):
        if not (REAL / name).is_file():
            print(f"skipped: {REAL / name} is absent")
            continue
        result = run("-o", "r.las", str(REAL / name))
        las = read("r.las") if result.returncode == 0 else None
        check(las is not None and las["header"]["scale"] == [10.0**-decimals] * 3, f"{name}: {result.stderr}")
        rows = [line.split(separator) for line in (REAL / name).read_text().splitlines()[1:]]
        for i, axis in enumerate("XYZ"):
            if las is not None:
                exact([r[i] for r in rows], las["dimensions"][axis], decimals, axis, name)

print(f"{len(failures)} failure(s)")
sys.exit(1 if failures else 0)
