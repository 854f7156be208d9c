// One card: the plots of one field of an adapter.

const POINTS_PER_PIXEL = 1.5;
const MAIN_HEIGHT = 250;
const SIDE_HEIGHT = 104;
const SINGLE_HEIGHT = 168;

const isEmptyAt = (samples, row, index) => Number.isNaN(samples.rows[row].first[index]);

// Whether a line must not cross this bucket when the row has nothing there.
const breaksLine = (samples, index) => (samples.marks[index] & (MARK.gap | MARK.unknown)) !== 0;

// Columns for uPlot: times, then two points a bucket for each row, then the means. `undefined` is
// passed over by a line, and null ends it.
function linesOf(samples) {
  const count = samples.rows.length;
  samples.single = samples.rows.every(row =>
    row.first.every((value, i) => value === row.second[i] || Number.isNaN(value)));
  const times = [];
  const buckets = [];
  const extremes = samples.rows.map(() => []);
  const means = samples.rows.map(() => []);
  for (let i = 0; i < samples.length; ++i) {
    const time = samples.time + i * samples.width;
    let any = breaksLine(samples, i);
    for (let row = 0; row < count && !any; ++row) any = !isEmptyAt(samples, row, i);
    if (!any) continue;
    for (const half of samples.single ? [0.5] : [0.25, 0.75]) {
      times.push(time + half * samples.width);
      buckets.push(i);
      for (let row = 0; row < count; ++row) {
        const one = samples.rows[row];
        const none = breaksLine(samples, i) ? null : undefined;
        const empty = isEmptyAt(samples, row, i);
        extremes[row].push(empty ? none : half > 0.6 ? one.second[i] : one.first[i]);
        means[row].push(samples.single || empty ? none : one.mean[i]);
      }
    }
  }
  samples.buckets = buckets;
  samples.lone = extremes.map(lonePoints);
  return [times, ...extremes, ...means];
}

// Points without neighbours, which a line does not show.
function lonePoints(column) {
  const lone = [];
  let before = null;
  for (let i = 0; i < column.length; ++i) {
    if (column[i] === undefined) continue;
    if (column[i] !== null && before === null) {
      let next = i + 1;
      while (next < column.length && column[next] === undefined) ++next;
      if (next >= column.length || column[next] === null) lone.push(i);
    }
    before = column[i];
  }
  return lone;
}

const MOST_GROUPS = 150;  // of buckets, in the plots beside the main one

// Columns of means: times, then what `make` returns for the rows' means. Buckets are put together, so
// that rare events do not make the plot flicker.
function meansOf(samples, count, make) {
  const columns = Array.from({ length: count + 1 }, () => []);
  const size = Math.ceil(samples.length / MOST_GROUPS);
  for (let begin = 0; begin < samples.length; begin += size) {
    const end = Math.min(samples.length, begin + size);
    const values = samples.rows.map(row => meanOf(row.mean, begin, end));
    const isKnown = values.every(value => value !== null);
    let breaks = false;
    for (let i = begin; i < end; ++i) breaks ||= breaksLine(samples, i);
    const made = isKnown ? make(values) : null;
    if (!made && !breaks) continue;
    columns[0].push(samples.time + (begin + end) / 2 * samples.width);
    for (let column = 0; column < count; ++column) columns[column + 1].push(made ? made[column] : null);
  }
  return columns;
}

function meanOf(values, begin, end) {
  let sum = 0;
  let count = 0;
  for (let i = begin; i < end; ++i) {
    if (Number.isNaN(values[i])) continue;
    sum += values[i];
    ++count;
  }
  return count ? sum / count : null;
}

function sharesOf(values) {
  const sum = values.reduce((one, other) => one + other, 0);
  if (!(sum > 0)) return null;
  let below = 0;
  return values.map(value => (below += value) / sum);
}

function axes(field, valuesOf, size) {
  const common = {
    stroke: () => theme.get("quiet"),
    grid: { stroke: () => theme.get("grid"), width: 1 },
    ticks: { show: false },
    font: "11px system-ui, sans-serif",
  };
  return [
    { ...common, size: 24, gap: 4, space: 90,
      values: (plot, splits, axis, space, step) => splits.map(ms => tickText(ms, step)) },
    { ...common, size: size || 58, gap: 6, space: 34, values: (plot, splits) => splits.map(valuesOf) },
  ];
}

function plotOptions(card, height, series, extra) {
  return {
    width: 400, height, ms: 1, series: [{}, ...series],
    tzDate: ms => clock.utc ? uPlot.tzDate(new Date(ms), "Etc/UTC") : new Date(ms),
    padding: [LANES + 3, extra.right || 8, 0, 0],
    legend: { show: false },
    cursor: {
      y: false,
      drag: { x: true, y: false, setScale: false, dist: 4 },
      sync: { key: "tev", scales: ["x", null],
        filters: { pub: type => type === "mousemove" || type === "mouseleave", sub: () => true } },
      bind: { dblclick: () => () => { view.reset(); return null; } },
      points: { show: false },
    },
    scales: { x: { time: true, range: () => [view.from, view.to] }, y: extra.y },
    axes: extra.axes,
    bands: extra.bands,
    hooks: {
      drawClear: [plot => drawMarks(plot, card.samples), ...(extra.behind || [])],
      draw: extra.above || [],
      setCursor: extra.isMain ? [plot => card.showCursor(plot)] : [],  // the main plot is in step
      setSelect: [plot => {
        const { left, width } = plot.select;
        if (width < 4) return;
        const [from, to] = [plot.posToVal(left, "x"), plot.posToVal(left + width, "x")];
        plot.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
        view.set(from, to);
      }],
    },
  };
}

class Card {
  constructor(deviceIndex, field) {
    this.deviceIndex = deviceIndex;
    this.field = field;
    this.device = recording.devices[deviceIndex];
    this.names = field.series.map(one => this.device.series[one.series].name);
    this.isCompared = field.plane && field.series.length > 1;
    this.hasShare = this.isCompared && countsUp(field);
    this.plots = [];
    this.isVisible = false;
    this.shown = "";  // the view that is drawn
    this.hidden = new Set();
    this.build();
  }

  build() {
    const { field } = this;
    this.chips = field.series.map((one, row) => this.chip(row));
    this.note = element("p", { className: "note" });
    this.main = element("div", { className: "plot main", role: "img" });
    const sides = [];
    if (this.hasShare) {
      this.share = element("div", { className: "plot side", role: "img", "aria-label": field.name + ": share of each plane" });
      sides.push(element("div", null, element("h4", { text: "share of each plane" }), this.share));
    }
    if (this.isCompared) {
      this.spread = element("div", { className: "plot side", role: "img", "aria-label": field.name + ": lowest and highest plane" });
      this.spreadNote = element("span");
      const head = element("h4", { text: "lowest to highest plane " });
      head.append(this.spreadNote);
      sides.push(element("div", null, head, this.spread));
    }
    const kind = field.kind === "gauge" ? "gauge, band up to p99" : field.kind;
    this.root = element("article", { className: "card" + (this.isCompared ? " wide" : "") },
      element("header", null,
        element("h3", { text: field.name }),
        element("span", { className: "text", text: describe(field) }),
        element("span", { className: "kind", text: kind + (unitOf(field) ? " · " + unitOf(field) : "") })),
      element("div", { className: "chips" }, ...this.chips),
      element("div", { className: "plots" }, this.main,
        sides.length ? element("div", { className: "sides" }, ...sides) : null));
  }

  chip(row) {
    const value = element("b");
    const part = element("i");
    const chip = element("button", { className: "chip", type: "button", "aria-pressed": "true",
        title: "show or hide", onclick: () => this.toggle(row) },
      swatch(row), element("span", { text: this.names[row] }), value, part);
    chip.amount = value;
    chip.share = part;
    return chip;
  }

  toggle(row) {
    const hide = !this.hidden.has(row);
    if (hide) this.hidden.add(row); else this.hidden.delete(row);
    this.chips[row].setAttribute("aria-pressed", String(!hide));
    const plot = this.plots[0];
    if (!plot) return;
    const count = this.field.series.length;
    plot.batch(() => {
      plot.setSeries(1 + row, { show: !hide });
      plot.setSeries(1 + count + row, { show: !hide });
    });
  }

  makePlots() {
    const { field } = this;
    const number = value => shortNumber(value);
    const rows = field.series.map((_, row) => row);
    const lines = rows.map(row => ({
      stroke: () => this.samples && this.samples.single ? lineColor(row) : transparent(lineColor(row), 0.65),
      width: 1.25, points: { show: (plot, index, first, last) => this.samples.single && last - first < plot.width / 10,
        size: 5, fill: () => lineColor(row), stroke: () => lineColor(row) },
    }));
    const means = rows.map(row => ({ stroke: () => lineColor(row), width: 2, dash: lineDash(row), points: { show: false } }));
    const upwards = { range: (plot, least, most) => [0, most > 0 ? most * 1.12 : 1] };
    const around = { range: (plot, least, most) => least === null ? [0, 1] : uPlot.rangeNum(least, most, 0.12, true) };
    this.add(this.main, this.isCompared ? MAIN_HEIGHT : SINGLE_HEIGHT, [...lines, ...means], {
      isMain: true, right: this.field.series.length > 1 ? 20 : 8,
      y: countsUp(field) ? upwards : around, axes: axes(field, number),
      behind: [plot => this.drawBands(plot)],
      above: [plot => this.drawLone(plot), plot => this.drawLabels(plot)],
    });
    if (this.hasShare)
      this.add(this.share, SIDE_HEIGHT, rows.map(row => row).reverse().map(row => ({
        stroke: () => theme.get("card"), width: 1.2, fill: () => lineColor(row), points: { show: false },
      })), { y: { range: [0, 1] }, axes: axes(field, value => Math.round(100 * value) + " %", 44), right: 20,
             above: [plot => this.drawShareLabels(plot)] });
    if (this.isCompared)
      this.add(this.spread, this.hasShare ? SIDE_HEIGHT : MAIN_HEIGHT - 20, [
        { stroke: () => theme.get("ink"), width: 1.4, points: { show: false } },
        { stroke: () => theme.get("quiet"), width: 1.4, dash: [4, 3], points: { show: false } },
      ], { y: countsUp(field) ? upwards : around, axes: axes(field, number, 44), right: 20,
           bands: [{ series: [1, 2], fill: () => transparent(theme.get("accent"), 0.25) }] });
  }

  add(place, height, series, extra) {
    const plot = new uPlot(plotOptions(this, height, series, extra), [[], ...series.map(() => [])], place);
    plot.place = place;
    this.plots.push(plot);
  }

  // Draws the view unless it is drawn already.
  async update() {
    const wanted = view.from + ":" + view.to;
    if (this.shown === wanted) return;
    this.shown = wanted;
    if (this.plots.length === 0) this.makePlots();
    this.resize();
    const most = Math.max(400, this.plots[0].width * POINTS_PER_PIXEL);
    const samples = await samplesOf(this.deviceIndex, this.field, view.from, view.to, most);
    if (this.shown !== wanted) return;
    this.samples = samples;
    this.draw();
  }

  draw() {
    const { samples } = this;
    const data = [linesOf(samples)];
    if (this.hasShare) {
      const shares = meansOf(samples, samples.rows.length, sharesOf);
      data.push([shares[0], ...shares.slice(1).reverse()]);
    }
    if (this.isCompared)
      data.push(meansOf(samples, 2, values => [Math.max(...values), Math.min(...values)]));
    this.plots.forEach((plot, i) => plot.setData(data[i]));
    this.means = this.field.series.map((_, row) => meanInView(samples, row));
    this.showCursor(null);
    this.main.setAttribute("aria-label", this.field.name + ": " + this.names.map((name, row) =>
      name + " " + withUnit(this.means[row], this.field)).join(", "));
  }

  redraw() {
    this.chips.forEach(chip => chip.firstChild.draw());
    for (const plot of this.plots) plot.redraw(false, true);
  }

  resize() {
    for (const plot of this.plots) {
      const width = Math.max(200, plot.place.clientWidth);
      if (width !== plot.width) plot.setSize({ width, height: plot.height });
    }
  }

  // The values under the cursor, or the means of the view.
  showCursor(plot) {
    const { samples } = this;
    if (!samples || plot && !this.isVisible) return;
    const index = plot ? plot.cursor.idx : null;
    const bucket = typeof index === "number" ? samples.buckets[index] : null;
    if (plot) cursorTime(bucket === null ? null : samples.time + (bucket + 0.5) * samples.width, samples.width);
    const values = bucket === null ? this.means : samples.rows.map(row => meanOf(row.mean, bucket, bucket + 1));
    const sum = values.reduce((one, other) => one + (other || 0), 0);
    values.forEach((value, row) => {
      this.chips[row].amount.textContent = withUnit(value, this.field);
      this.chips[row].share.textContent = [this.hasShare && sum > 0 ? percent(value / sum) : "",
        bucket === null ? "" : rangeText(samples.rows[row], bucket)].filter(Boolean).join(" · ");
    });
    if (this.isCompared) this.showSpread(values);
  }

  showSpread(values) {
    const most = Math.max(...values);
    const least = Math.min(...values);
    const isEven = !(most > least * 1.005);
    this.spreadNote.textContent = isEven ? ""
      : "– highest: " + this.names[values.indexOf(most)] + (least > 0 ? ", ×" + digits(most / least) + " of the lowest" : ", the lowest has 0");
  }

  // From the mean to the 99th percentile of the windows that the recording was cut into.
  drawBands(plot) {
    const { begin, width } = recording.band;
    this.field.series.forEach((one, row) => {
      if (!one.band || this.hidden.has(row)) return;
      const context = plot.ctx;
      context.save();
      clipTo(plot);
      context.fillStyle = transparent(lineColor(row), 0.2);
      context.strokeStyle = transparent(lineColor(row), 0.7);
      context.setLineDash([2 * devicePixelRatio, 2 * devicePixelRatio]);
      const low = Math.max(0, Math.floor((view.from - toMs(begin)) / toMs(width)) - 1);
      const high = Math.min(one.band.p99.length, Math.ceil((view.to - toMs(begin)) / toMs(width)) + 1);
      for (let i = low; i < high; ++i) {
        if (one.band.p99[i] === null) continue;
        const left = plot.valToPos(toMs(begin + i * width), "x", true);
        const right = plot.valToPos(toMs(begin + (i + 1) * width), "x", true);
        const top = plot.valToPos(one.band.p99[i], "y", true);
        const bottom = plot.valToPos(one.band.mean[i], "y", true);
        context.fillRect(left, top, right - left, bottom - top);
        context.beginPath();
        context.moveTo(left, top);
        context.lineTo(right, top);
        context.stroke();
      }
      context.restore();
    });
  }

  drawLone(plot) {
    if (!this.samples) return;
    const context = plot.ctx;
    context.save();
    clipTo(plot);
    this.samples.lone.forEach((indexes, row) => {
      if (this.hidden.has(row)) return;
      context.fillStyle = lineColor(row);
      for (const index of indexes) {
        context.beginPath();
        context.arc(plot.valToPos(plot.data[0][index], "x", true),
          plot.valToPos(plot.data[1 + row][index], "y", true), 2.5 * devicePixelRatio, 0, 2 * Math.PI);
        context.fill();
      }
    });
    context.restore();
  }

  // The short name of each line at its right end.
  drawLabels(plot) {
    if (!this.samples || this.field.series.length < 2) return;
    const ends = [];
    this.samples.rows.forEach((row, i) => {
      if (this.hidden.has(i)) return;
      for (let at = this.samples.length - 1; at >= 0; --at)
        if (!Number.isNaN(row.mean[at]) && this.samples.time + at * this.samples.width < view.to) {
          ends.push({ row: i, y: plot.valToPos(row.mean[at], "y", true) });
          break;
        }
    });
    drawNames(plot, this.names, ends);
  }

  drawShareLabels(plot) {
    const last = plot.data[1] ? plot.data[1].findLastIndex(value => value !== null && value !== undefined) : -1;
    if (last < 0) return;
    const count = this.field.series.length;
    const ends = this.field.series.map((_, row) => {
      const top = plot.data[count - row][last];
      const bottom = row > 0 ? plot.data[count - row + 1][last] : 0;
      return { row, y: plot.valToPos((top + bottom) / 2, "y", true), size: top - bottom };
    });
    drawNames(plot, this.names, ends.filter(end => end.size > 0.02));
  }

  destroy() {
    for (const plot of this.plots) plot.destroy();
    this.plots = [];
  }
}

const shortName = name => name.replace(/^plane /, "");

function drawNames(plot, names, ends) {
  const context = plot.ctx;
  const ratio = devicePixelRatio;
  context.save();
  context.font = "600 " + 10 * ratio + "px system-ui, sans-serif";
  context.textBaseline = "middle";
  context.textAlign = "left";
  ends.sort((one, other) => one.y - other.y);
  const step = 11 * ratio;
  const bottom = plot.bbox.top + plot.bbox.height;
  ends.forEach((end, i) => {
    end.y = Math.max(Math.min(end.y, bottom - (ends.length - 1 - i) * step), i > 0 ? ends[i - 1].y + step : -Infinity);
    context.fillStyle = lineColor(end.row);
    context.fillText(shortName(names[end.row]).slice(0, 3), plot.bbox.left + plot.bbox.width + 5 * ratio, end.y);
  });
  context.restore();
}

function clipTo(plot) {
  plot.ctx.beginPath();
  plot.ctx.rect(plot.bbox.left, plot.bbox.top, plot.bbox.width, plot.bbox.height);
  plot.ctx.clip();
}

// The mean of a row in the view.
function meanInView(samples, row) {
  const index = time => Math.min(samples.length, Math.max(0, Math.round((time - samples.time) / samples.width)));
  return meanOf(samples.rows[row].mean, index(samples.from), index(samples.to));
}

// The lowest and the highest sample of a bucket, when it has several.
function rangeText(row, bucket) {
  const [one, other] = [row.first[bucket], row.second[bucket]];
  if (Number.isNaN(one) || one === other) return "";
  return shortNumber(Math.min(one, other)) + "–" + shortNumber(Math.max(one, other));
}

// The field's text without its name and the number of a plane.
function describe(field) {
  return field.text.replace(/,?\s*plane \d+$/, "").replace(new RegExp("^" + field.name.replace(/[^\w]/g, "\\$&") + ",?\\s*"), "");
}
