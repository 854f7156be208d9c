// Shading of what is missing or not known. Each kind has its own pattern, lane and name.

const MARK_KINDS = [
  { bit: MARK.gap, name: "gap", text: "by the time stamps, samples are missing", pattern: "slant" },
  { bit: MARK.lost, name: "lost", text: "samples were dropped before the host had them", pattern: "cross" },
  { bit: MARK.refused, name: "refused", text: "the device refused reads, or filled in nothing", pattern: "dots" },
  { bit: MARK.late, name: "late", text: "the sampling thread was late", pattern: "bars" },
  { bit: MARK.unknown, name: "unknown", text: "a counter may have moved too far to be followed", pattern: "lines" },
];
const LANES = 12;  // height of all lanes above a plot, in CSS pixels

const tiles = new Map();

function patternOf(context, kind, ratio) {
  const color = theme.get("mark-" + kind.name);
  const id = kind.pattern + color + ratio;
  if (!tiles.has(id)) tiles.set(id, tileOf(kind.pattern, color, ratio));
  return context.createPattern(tiles.get(id), "repeat");
}

function tileOf(pattern, color, ratio) {
  const size = Math.round(8 * ratio);
  const tile = element("canvas", { width: size, height: size });
  const context = tile.getContext("2d");
  context.strokeStyle = context.fillStyle = color;
  context.lineWidth = (pattern === "bars" ? 2.5 : 1.4) * ratio;
  const line = (x0, y0, x1, y1) => {
    context.beginPath();
    context.moveTo(x0 * size, y0 * size);
    context.lineTo(x1 * size, y1 * size);
    context.stroke();
  };
  if (pattern === "slant" || pattern === "cross") for (const at of [-1, 0, 1]) line(at, 1, at + 1, 0);
  if (pattern === "cross") for (const at of [-1, 0, 1]) line(at, 0, at + 1, 1);
  if (pattern === "bars") line(0, 0.5, 1, 0.5);
  if (pattern === "lines") line(0.5, 0, 0.5, 1);
  if (pattern === "dots") {
    context.beginPath();
    context.arc(size / 2, size / 2, size / 5, 0, 2 * Math.PI);
    context.fill();
  }
  return tile;
}

// Runs of buckets that have the mark.
function* runsOf(samples, bit) {
  let begin = -1;
  for (let i = 0; i <= samples.length; ++i) {
    const is = i < samples.length && (samples.marks[i] & bit) !== 0;
    if (is && begin < 0) begin = i;
    if (!is && begin >= 0) {
      yield [begin, i];
      begin = -1;
    }
  }
}

const kindsIn = samples => MARK_KINDS.filter(kind => samples.marks.some(marks => marks & kind.bit));

// Behind the lines of a plot. Each kind in sight has a lane above the plot. Gaps and unknown steps are
// also shaded over the whole height, as strongly as the part of the time that they take.
function drawMarks(plot, samples) {
  if (!samples) return;
  const context = plot.ctx;
  const ratio = devicePixelRatio;
  const box = plot.bbox;
  const kinds = kindsIn(samples);
  const lane = Math.min(5, LANES / Math.max(1, kinds.length)) * ratio;
  const x = index => plot.valToPos(samples.time + index * samples.width, "x", true);
  context.save();
  context.beginPath();
  context.rect(box.left, 0, box.width, box.top + box.height);
  context.clip();
  kinds.forEach((kind, number) => {
    const top = box.top - (kinds.length - number) * lane - ratio;
    let widest = null;
    for (const [begin, end] of runsOf(samples, kind.bit)) {
      const left = x(begin);
      const width = Math.max(2 * ratio, x(end) - left);
      context.fillStyle = patternOf(context, kind, ratio);
      shade(context, samples, kind, begin, end, x, box, ratio);
      context.globalAlpha = 1;
      fillLane(context, kind, left, top, width, lane - ratio, ratio);
      if (!widest || width > widest.width) widest = { left: Math.max(left, box.left), width };
    }
    if (widest && widest.width > 60 * ratio && box.height > 120 * ratio) nameRun(context, kind, widest.left, number, box, ratio);
  });
  context.restore();
}

// The pattern is made to fit the lane, so that even a low lane shows which kind it is.
function fillLane(context, kind, left, top, width, height, ratio) {
  const pattern = patternOf(context, kind, ratio);
  const scale = height / Math.round(8 * ratio);
  pattern.setTransform(new DOMMatrix([scale, 0, 0, scale, 0, top]));
  context.fillStyle = theme.get("mark-" + kind.name);
  context.globalAlpha = 0.25;
  context.fillRect(left, top, width, height);
  context.globalAlpha = 1;
  context.fillStyle = pattern;
  context.fillRect(left, top, width, height);
}

function shade(context, samples, kind, begin, end, x, box, ratio) {
  if (kind.bit !== MARK.gap && kind.bit !== MARK.unknown) return;
  for (let i = begin; i < end; ++i) {
    const part = kind.bit === MARK.gap ? samples.gaps[i] / 255 : 0.4;
    context.globalAlpha = Math.min(0.7, 0.05 + 0.65 * part);
    const left = x(i);
    context.fillRect(left, box.top, Math.max(ratio, x(i + 1) - left), box.height);
  }
}

// The word for a kind of shading, at its widest run.
function nameRun(context, kind, left, number, box, ratio) {
  context.font = "600 " + 10 * ratio + "px system-ui, sans-serif";
  context.textBaseline = "top";
  context.textAlign = "left";
  const at = box.top + (3 + 14 * number) * ratio;
  context.fillStyle = theme.get("card");
  context.fillRect(left + 2 * ratio, at, context.measureText(kind.name).width + 6 * ratio, 12 * ratio);
  context.fillStyle = theme.get("quiet");
  context.fillText(kind.name, left + 5 * ratio, at + ratio);
}

function markLegend() {
  return element("ul", { className: "marks", "aria-label": "shading" }, ...MARK_KINDS.map(kind => {
    const box = element("canvas", { width: 32, height: 20, className: "mark" });
    box.draw = () => {
      const context = box.getContext("2d");
      context.clearRect(0, 0, 32, 20);
      context.fillStyle = patternOf(context, kind, 1.5);
      context.fillRect(0, 0, 32, 20);
    };
    box.draw();
    return element("li", { title: kind.text }, box, element("b", { text: kind.name }),
      element("span", { text: " " + kind.text }));
  }));
}
