// SPDX-License-Identifier: Apache-2.0
//
// node decode.mjs FILE OUT.bin
//
// Decodes the LAS or LAZ file FILE with laz-perf (WebAssembly) and writes its point records to OUT.bin: uncompressed,
// one after the other, little-endian, as a LAS file holds them. Prints one JSON line about them:
//   {"count":N,"pointFormat":F,"recordLength":L}
// A file that cannot be decoded completely ends with status 1 and a message; OUT.bin is then removed.
// The file has to fit in the 2 GiB that the WebAssembly module can address.

import fs from 'node:fs';

// Where the public header block keeps what is needed here (LAS 1.4 R15, table 3).
const HEADER = {
  versionMinor: 25,
  offsetToPoints: 96,
  pointFormat: 104,
  recordLength: 105,
  legacyCount: 107,
  count: 247,
};
const HEADER_SIZE_1_0 = 227;
const HEADER_SIZE_1_4 = 375;
const BATCH_BYTES = 1 << 20;

/** What the header of `file` (a Buffer) says of the points. Throws an Error where it is no LAS header. */
function readHeader(file) {
  if (file.length < HEADER_SIZE_1_0 || file.toString('latin1', 0, 4) !== 'LASF') {
    throw new Error('no LAS header');
  }
  const minor = file.readUInt8(HEADER.versionMinor);
  let count = BigInt(file.readUInt32LE(HEADER.legacyCount));
  if (minor >= 4) {
    if (file.length < HEADER_SIZE_1_4) {
      throw new Error('the LAS 1.4 header is cut short');
    }
    count = file.readBigUInt64LE(HEADER.count);
  }
  const format = file.readUInt8(HEADER.pointFormat);
  return {
    offsetToPoints: file.readUInt32LE(HEADER.offsetToPoints),
    // LASzip marks a compressed file by the highest bit of the point format.
    compressed: (format & 0x80) !== 0,
    pointFormat: format & 0x3f,
    recordLength: file.readUInt16LE(HEADER.recordLength),
    count: Number(count),
  };
}

/** Hands every record of the LAZ file to `write`, a batch of whole records (a Buffer, reused) at a time. */
async function decodeCompressed(file, header, write) {
  const { createLazPerf } = (await import('laz-perf')).default;
  const module = await createLazPerf();
  const input = module._malloc(file.length);
  const perBatch = Math.max(1, Math.floor(BATCH_BYTES / header.recordLength));
  const batch = module._malloc(perBatch * header.recordLength);
  if (input === 0 || batch === 0) {
    throw new Error(`no memory for ${file.length} bytes`);
  }
  module.HEAPU8.set(file, input);

  const decoder = new module.LASZip();
  decoder.open(input, file.length);
  for (const [name, seen] of [
    ['count', decoder.getCount()],
    ['pointFormat', decoder.getPointFormat()],
    ['recordLength', decoder.getPointLength()],
  ]) {
    if (Number(seen) !== header[name]) {
      throw new Error(`laz-perf finds ${name} ${seen}, the header says ${header[name]}`);
    }
  }

  for (let done = 0; done < header.count; ) {
    const records = Math.min(perBatch, header.count - done);
    for (let i = 0; i < records; ++i) {
      decoder.getPoint(batch + i * header.recordLength);
    }
    // The heap moves when it grows, so the view is taken anew for each batch.
    write(Buffer.from(module.HEAPU8.buffer, batch, records * header.recordLength));
    done += records;
  }
  decoder.delete();
}

/** Hands the records of an uncompressed LAS file to `write`. */
function copyUncompressed(file, header, write) {
  const end = header.offsetToPoints + header.count * header.recordLength;
  if (end > file.length) {
    throw new Error(`${header.count} records of ${header.recordLength} bytes reach beyond the end of the file`);
  }
  write(file.subarray(header.offsetToPoints, end));
}

async function main(args) {
  if (args.length !== 2) {
    throw new Error('usage: node decode.mjs FILE OUT.bin');
  }
  const [inputPath, outputPath] = args;
  const file = fs.readFileSync(inputPath);
  const header = readHeader(file);
  if (header.recordLength === 0) {
    throw new Error('records of 0 bytes');
  }

  const output = fs.openSync(outputPath, 'w');
  let written = 0;
  const write = (bytes) => {
    for (let at = 0; at < bytes.length; ) {
      at += fs.writeSync(output, bytes, at);
    }
    written += bytes.length;
  };
  try {
    if (header.compressed) {
      await decodeCompressed(file, header, write);
    } else {
      copyUncompressed(file, header, write);
    }
    if (written !== header.count * header.recordLength) {
      throw new Error(`${written} bytes decoded for ${header.count} records of ${header.recordLength}`);
    }
  } catch (error) {
    fs.rmSync(outputPath, { force: true });
    throw error;
  } finally {
    fs.closeSync(output);
  }
  const { count, pointFormat, recordLength } = header;
  console.log(JSON.stringify({ count, pointFormat, recordLength }));
}

main(process.argv.slice(2)).catch((error) => {
  // A C++ exception inside the module arrives as a number or a text that names its address, and no more.
  const reason = error instanceof Error ? error.message : 'laz-perf cannot decode it';
  const what = process.argv.length > 2 ? `${process.argv[2]}: ` : '';
  console.error(`decode.mjs: ${what}${reason}`);
  process.exitCode = 1;
});
