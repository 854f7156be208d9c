// The levels of detail that lie in the page (their form: host/plot/levels.h). Blocks are unpacked
// when they are shown.

const MARK = { gap: 1, lost: 2, refused: 4, late: 8, unknown: 16 };
const NONE = 0xffffff;
const MOST_BLOCKS = 600;  // unpacked ones that are kept

const toMs = usec => usec / 1000;
const bucketMs = level => toMs(recording.width) * recording.factor ** (recording.levels - 1 - level);
const bucketsOf = level => Math.ceil(recording.buckets / recording.factor ** (recording.levels - 1 - level));
const bucketTime = (level, index) => toMs(recording.begin) + index * bucketMs(level);

const packed = new Map();    // "d0l0": the level's text and where its blocks begin
const unpacked = new Map();  // "d0l0/7": promise of a block, oldest first

function bytesOf(text, from, to) {
  const first = Math.floor(from / 3);
  const binary = atob(text.slice(4 * first, 4 * Math.ceil(to / 3)));
  const bytes = new Uint8Array(to - from);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = binary.charCodeAt(from - 3 * first + i);
  return bytes;
}

// Null when the page does not have this level of the device.
function packedLevel(device, level) {
  const id = "d" + device + "l" + level;
  if (packed.has(id)) return packed.get(id);
  const source = document.getElementById(id);
  let made = null;
  if (source) {
    const text = source.textContent;
    const count = new DataView(bytesOf(text, 0, 4).buffer).getUint32(0, true);
    const lengths = new DataView(bytesOf(text, 4, 4 + 4 * count).buffer);
    const begins = [4 + 4 * count];
    for (let i = 0; i < count; ++i) begins.push(begins[i] + lengths.getUint32(4 * i, true));
    made = { text, begins };
  }
  packed.set(id, made);
  return made;
}

function finestLevel(device) {
  let level = 0;
  while (level + 1 < recording.levels && packedLevel(device, level + 1)) ++level;
  return level;
}

async function unpack(bytes) {
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

const segmentLength = (level, segment) =>
  Math.min(recording.segment, bucketsOf(level) - segment * recording.segment);

// `place` 0 has the marks of the device; the others are those of its charts, from 1.
function blockOf(device, level, place, segment, decode) {
  const source = packedLevel(device, level);
  const number = place * Math.ceil(bucketsOf(level) / recording.segment) + segment;
  const id = "d" + device + "l" + level + "/" + number;
  let block = unpacked.get(id);
  if (block) unpacked.delete(id);  // it becomes the newest one
  else
    block = unpack(bytesOf(source.text, source.begins[number], source.begins[number + 1]))
      .then(bytes => decode(bytes, segmentLength(level, segment)));
  unpacked.set(id, block);
  if (unpacked.size > MOST_BLOCKS) unpacked.delete(unpacked.keys().next().value);
  return block;
}

const floatWord = new Uint32Array(1);
const floatValue = new Float32Array(floatWord.buffer);

// A column of numbers of 24 bits; `base` has the words that they differ from.
function columnOf(bytes, at, length, base) {
  const words = new Uint32Array(length);
  const values = new Float32Array(length);
  for (let i = 0; i < length; ++i) {
    let word = (bytes[at + i] << 16) | (bytes[at + length + i] << 8) | bytes[at + 2 * length + i];
    if (base) word ^= base[i];
    words[i] = word;
    floatWord[0] = word << 8;
    values[i] = word === NONE ? NaN : floatValue[0];
  }
  return { words, values };
}

function decodeField(bytes, length) {
  const rows = [];
  const count = (bytes.length / length - 1) / 9;
  for (let row = 0; row < count; ++row) {
    const at = 9 * row * length;
    const first = columnOf(bytes, at, length);
    rows.push({
      first: first.values,
      second: columnOf(bytes, at + 3 * length, length, first.words).values,
      mean: columnOf(bytes, at + 6 * length, length, first.words).values,
    });
  }
  return { rows, marks: bytes.subarray(9 * count * length) };
}

const decodeMarks = (bytes, length) =>
  ({ marks: bytes.subarray(0, length), gaps: bytes.subarray(length, 2 * length) });

// The finest level that the page has and that is not too fine for so many points.
function levelFor(device, from, to, mostBuckets) {
  const finest = finestLevel(device);
  let level = 0;
  while (level < finest && (to - from) / bucketMs(level + 1) <= mostBuckets) ++level;
  return level;
}

// The buckets of a field between two times, and the marks of field and device.
async function samplesOf(device, field, from, to, mostBuckets) {
  const level = levelFor(device, from, to, mostBuckets);
  const width = bucketMs(level);
  const last = bucketsOf(level) - 1;
  const limit = index => Math.max(0, Math.min(last, index));
  const begin = limit(Math.floor((from - bucketTime(level, 0)) / width) - 2);
  const end = limit(Math.ceil((to - bucketTime(level, 0)) / width) + 2) + 1;
  const segments = [];
  for (let one = Math.floor(begin / recording.segment); one * recording.segment < end; ++one) segments.push(one);
  const blocks = await Promise.all(segments.map(segment => Promise.all([
    blockOf(device, level, 0, segment, decodeMarks),
    blockOf(device, level, 1 + field.chart, segment, decodeField),
  ])));
  const length = end - begin;
  const whole = (Type, part) => {
    const joined = new Type(length);
    segments.forEach((segment, i) => {
      const offset = segment * recording.segment - begin;
      const source = part(blocks[i]);
      joined.set(source.subarray(Math.max(0, -offset), Math.max(0, Math.min(source.length, length - offset))),
        Math.max(0, offset));
    });
    return joined;
  };
  const gaps = whole(Uint8Array, ([marks]) => marks.gaps);
  const marks = whole(Uint8Array, ([one]) => one.marks);
  const unknown = whole(Uint8Array, ([, one]) => one.marks);
  for (let i = 0; i < length; ++i) marks[i] |= unknown[i];
  const rows = field.series.map(one => one.row === undefined
    ? constantRow(device, one, level, begin, length, marks)
    : ["first", "second", "mean"].reduce((row, column) => {
      row[column] = whole(Float32Array, ([, block]) => block.rows[one.row][column]);
      return row;
    }, {}));
  return { level, width, begin, length, time: bucketTime(level, begin), marks, gaps, rows,
           from, to };
}

// A series that never moved has no blocks.
function constantRow(device, one, level, begin, length, marks) {
  const values = new Float32Array(length).fill(one.constant);
  const series = recording.devices[device].series[one.series];
  for (let i = 0; i < length; ++i) {
    const time = bucketTime(level, begin + i);
    if (time + bucketMs(level) < toMs(series.first) || time > toMs(series.last) || marks[i] & MARK.gap)
      values[i] = NaN;
  }
  return { first: values, second: values, mean: values };
}
