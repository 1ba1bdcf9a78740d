// Reads a LAS file with the npm package copc and prints it as JSON: the
// header, the variable-length records (the WKT as text), the extra bytes'
// descriptions and every dimension of every point.
// Usage: node las_read.js NODE_MODULES_FOLDER FILE.las
const path = require("path");
const fs = require("fs");
const { Las } = require(path.join(process.argv[2], "copc"));

async function main() {
    const file = process.argv[3];
    const bytes = new Uint8Array(fs.readFileSync(file));
    const header = Las.Header.parse(bytes.subarray(0, 375));
    const getter = async (begin, end) => bytes.subarray(begin, end);
    const vlrs = await Las.Vlr.walk(getter, header);
    const content = (vlr) => bytes.subarray(vlr.contentOffset, vlr.contentOffset + vlr.contentLength);
    const eb = Las.Vlr.find(vlrs, "LASF_Spec", 4);
    const extraBytes = eb ? Las.ExtraBytes.parse(content(eb)) : [];
    const wkt = Las.Vlr.find(vlrs, "LASF_Projection", 2112);
    const points = bytes.subarray(header.pointDataOffset, header.pointDataOffset +
                                  header.pointCount * header.pointDataRecordLength);
    const view = Las.View.create(points, header, extraBytes);
    const dimensions = {};
    for (const name of Object.keys(view.dimensions)) {
        const get = view.getter(name);
        const values = [];
        for (let i = 0; i < view.pointCount; ++i) values.push(Number(get(i)));
        dimensions[name] = values;
    }
    const out = {
        header, fileSize: bytes.length,
        vlrs: vlrs.map(({ userId, recordId, contentLength }) => ({ userId, recordId, contentLength })),
        wkt: wkt ? new TextDecoder().decode(content(wkt)) : null,
        extraBytes, pointCount: view.pointCount, dimensions,
    };
    process.stdout.write(JSON.stringify(out));
}
main().catch((e) => { console.error(e); process.exit(1); });
