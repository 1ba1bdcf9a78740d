"""The host's output files read back by other tools' readers (PLY by Open3D, HDF5 by h5py), with the values of the
text they came from.  Run by ctest as: /usr/bin/python3 host_outputs.py PALLION REAL_DATA_DIR; exits with 77
(skipped) where open3d or h5py is missing."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

try:
    import h5py
    import numpy as np
    import open3d as o3d
except ImportError as missing:
    print(f"skipped: {missing}")
    sys.exit(77)

HOST, REAL = sys.argv[1], sys.argv[2]
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAILED:", what)


def run(*arguments, stdin=None):
    return subprocess.run([HOST, "-q", *arguments], stdin=stdin, capture_output=True, text=True)




with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    rng, n = np.random.default_rng(7), 1000
    xyz = rng.uniform(-1e6, 1e6, (n, 3)).round(6)
    rgb = rng.integers(0, 256, (n, 3))
    normals = rng.uniform(-1, 1, (n, 3))
    intensity = rng.uniform(0, 1, n).astype(np.float32)
    klass = rng.integers(0, 65536, n)
    np.savetxt("table.txt", np.column_stack([xyz, intensity, rgb, normals, klass]), comments="",
               fmt=["%.17g"] * 4 + ["%d"] * 3 + ["%.17g"] * 3 + ["%d"], header="X Y Z Intensity R G B nx ny nz Class")
    parse = "P:point:X+Y+Z,C:rgb:R+G+B,N:tvector:nx+ny+nz,I:float:Intensity,K:uint16_t:Class"

    # PLY, written fragment by fragment (blocks of 64 rows), read by Open3D.
    result = run("--parse", parse, "--block", "64", "--output", "table.ply", "table.txt")
    check(result.returncode == 0, f"table.ply: status {result.returncode}: {result.stderr}")
    cloud = o3d.io.read_point_cloud("table.ply")
    check(np.array_equal(np.asarray(cloud.points), xyz), "PLY points equal the text's doubles")
    check(np.array_equal(np.rint(np.asarray(cloud.colors) * 255).astype(int), rgb), "PLY colours equal the text's")
    check(np.array_equal(np.asarray(cloud.normals), normals), "PLY normals equal the text's")
    # The scalar properties in their own types, read with the header's layout.
    header, body = pathlib.Path("table.ply").read_bytes().split(b"end_header\n", 1)
    types = {"double": "<f8", "float": "<f4", "uchar": "u1", "ushort": "<u2", "int": "<i4", "uint": "<u4"}
    layout = [(words[2], types[words[1]]) for words in (line.split() for line in header.decode().splitlines())
              if words and words[0] == "property"]
    vertices = np.frombuffer(body, dtype=np.dtype(layout))
    check(np.array_equal(vertices["I"], intensity), "PLY float property equals the text's float")
    check(vertices["K"].dtype == np.uint16 and np.array_equal(vertices["K"], klass), "PLY ushort property")

    # HDF5, the whole grid, read by h5py.
    result = run("--parse", parse, "--block", "64", "--epsg", "25832", "--json", "--output", "table.h5", "table.txt")
    check(result.returncode == 0, f"table.h5: status {result.returncode}: {result.stderr}")
    grid_order = [field["name"].encode() for field in json.loads(result.stdout)["fields"]]
    with h5py.File("table.h5", "r") as h5:
        # Groups listed in the order they were made, and each field's fragments in order with their counts.
        made = []
        h5.id.links.iterate(made.append, idx_type=h5py.h5.INDEX_CRT_ORDER)
        check(made == grid_order + [b"notes"] and len(made) == 6, f"groups in creation order: {made}")
        fragments = [name.decode() for name in h5["P"].attrs["fragments"]]
        check(fragments == [f"table{i}" for i in range((n + 63) // 64)], f"fragments in order: {fragments[:12]}")
        check(list(h5["P"].attrs["counts"]) == [64] * (n // 64) + [n % 64], "elements per fragment")
        for name, values in {"P": xyz, "C": rgb.astype(np.uint8), "I": intensity, "K": klass.astype(np.uint16)}.items():
            stored = h5[name]["values"][()]
            check(stored.dtype == values.dtype and np.array_equal(stored, values), f"HDF5 {name} as {values.dtype}")
        check(list(h5.attrs["EPSG"]) == [25832], "the grid's attribute EPSG")
        check(h5["notes"]["converter"][0] == b"ascii2z9", "the notes")

    # Names a reader would confuse: a repeated PLY property gets a suffix, an HDF5 group name that cannot be is
    # refused before the conversion (no file, exit 2).
    with open("names.txt", "w") as table:
        table.write("X Y Z x red\n1 2 3 4 5\n")
    result = run("--parse", "P:point:X+Y+Z,x:double:x,C:rgb:X+Y+Z,red:double:red", "--output", "names.PLY",
                 "names.txt")
    cloud = pathlib.Path("names.PLY").read_bytes().split(b"end_header")[0].decode()
    properties = [line.split()[1:] for line in cloud.splitlines() if line.startswith("property")]
    names = [name for _, name in properties]
    check(len(set(names)) == 8 and {"x_2", "red_2"} < set(names), f"unique PLY names: {names}")
    check([name for kind, name in properties if kind == "uchar"] == ["red", "green", "blue"], "red is the rgb's")
    for parse in ("P:point:X+Y+Z,notes:double:x", "P:point:X+Y+Z,a/b:double:x"):
        result = run("--parse", parse, "--output", "names.HDF5", "names.txt")
        check(result.returncode == 2 and "cannot be an HDF5 group name" in result.stderr
              and not os.path.exists("names.HDF5"), f"{parse}: {result.returncode} {result.stderr}")

    # Standard input is never read ahead, so nothing is guessed: header names cannot be looked up.
    with open("table.txt", "rb") as stdin:
        result = run("--parse", parse, "--output", "piped.h5", "-", stdin=stdin)
    check(result.returncode == 2 and "not read ahead" in result.stderr, f"names on a pipe: {result.stderr}")
    check(not os.path.exists("piped.h5"), "no output after a refusal")
    # Every real table converts with the defaults (one with --lenient), and its PLY opens in Open3D.
    if os.path.isdir(REAL):
        for name in sorted(name for name in os.listdir(REAL) if name.endswith((".txt", ".pts"))):
            result = run(os.path.join(REAL, name), "--output", name + ".ply")
            if name == "open3d_point_cloud_sample3.pts":  # a colon glued to its last number: read with --lenient
                check(result.returncode == 1 and "line 11" in result.stderr, f"{name}: refused at its line")
                result = run("--lenient", os.path.join(REAL, name), "--output", name + ".ply")
            check(result.returncode == 0, f"{name}: status {result.returncode}: {result.stderr}")
            rows = sum(1 for line in pathlib.Path(REAL, name).read_bytes().splitlines() if line.strip()) - 1
            check(len(o3d.io.read_point_cloud(name + ".ply").points) == rows, f"{name}: {rows} points in Open3D")

print(f"{len(failures)} failure(s)")
sys.exit(1 if failures else 0)
