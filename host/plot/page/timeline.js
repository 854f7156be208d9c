// The whole recording above the plots, with the part that the plots show.

const timeline = {
  canvas: null,
  samples: null,
  deviceIndex: -1,

  build() {
    timeline.canvas = element("canvas", { className: "timeline", role: "img", tabindex: "-1",
      "aria-label": "the whole recording; the plots show the framed part" });
    timeline.canvas.addEventListener("pointerdown", timeline.press);
    new ResizeObserver(() => timeline.draw()).observe(timeline.canvas);
    return timeline.canvas;
  },

  async load(deviceIndex) {
    timeline.deviceIndex = deviceIndex;
    const field = comparedField(recording.devices[deviceIndex]);
    timeline.samples = null;
    if (field && packedLevel(deviceIndex, 0)) {
      const samples = await samplesOf(deviceIndex, field, view.first, view.last, 1024);
      if (timeline.deviceIndex !== deviceIndex) return;
      timeline.samples = samples;
    }
    timeline.draw();
  },

  toTime: x => view.first + x / timeline.canvas.clientWidth * (view.last - view.first),
  toX: (time, width) => (time - view.first) / (view.last - view.first) * width,

  press(event) {
    const { canvas } = timeline;
    const at = () => timeline.toTime(event.clientX - canvas.getBoundingClientRect().left);
    const start = at();
    const { from, to } = view;
    const near = 7 / canvas.clientWidth * (view.last - view.first);
    const isWhole = from <= view.first && to >= view.last;
    const mode = isWhole ? "new" : Math.abs(start - from) < near ? "from" : Math.abs(start - to) < near ? "to"
      : start > from && start < to ? "pan" : "new";
    canvas.setPointerCapture(event.pointerId);
    const move = next => {
      event = next;
      const now = at();
      if (mode === "pan") view.set(from + now - start, to + now - start);
      if (mode === "from") view.set(now, to);
      if (mode === "to") view.set(from, now);
      if (mode === "new" && Math.abs(now - start) > near) view.set(Math.min(start, now), Math.max(start, now));
    };
    canvas.addEventListener("pointermove", move);
    canvas.addEventListener("pointerup", () => canvas.removeEventListener("pointermove", move), { once: true });
  },

  draw() {
    const { canvas, samples } = timeline;
    if (!canvas || !canvas.clientWidth) return;
    const ratio = devicePixelRatio;
    const width = canvas.width = Math.round(canvas.clientWidth * ratio);
    const height = canvas.height = Math.round(canvas.clientHeight * ratio);
    const context = canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    if (samples) {
      drawSpark(context, samples, time => timeline.toX(time, width), height, ratio);
      kindsIn(samples).forEach((kind, number) => {
        for (const [begin, end] of runsOf(samples, kind.bit)) {
          const left = timeline.toX(samples.time + begin * samples.width, width);
          const right = timeline.toX(samples.time + end * samples.width, width);
          fillLane(context, kind, left, (1 + 5 * number) * ratio, Math.max(2 * ratio, right - left), 4 * ratio, ratio);
        }
      });
    }
    const left = timeline.toX(view.from, width);
    const right = timeline.toX(view.to, width);
    context.fillStyle = transparent(theme.get("page"), 0.7);
    context.fillRect(0, 0, left, height);
    context.fillRect(right, 0, width - right, height);
    context.strokeStyle = theme.get("accent");
    context.lineWidth = 2 * ratio;
    context.strokeRect(left + ratio, ratio, Math.max(2, right - left - 2 * ratio), height - 2 * ratio);
  },
};

// Small lines without axes.
function drawSpark(context, samples, toX, height, ratio) {
  let most = 0;
  for (const row of samples.rows)
    for (const value of row.mean) if (value > most) most = value;
  if (most === 0) most = 1;
  samples.rows.forEach((row, index) => {
    context.strokeStyle = lineColor(index);
    context.lineWidth = 1.25 * ratio;
    context.beginPath();
    let isOpen = false;
    for (let i = 0; i < samples.length; ++i) {
      const value = row.mean[i];
      if (Number.isNaN(value)) {
        isOpen &&= !breaksLine(samples, i);
        continue;
      }
      const x = toX(samples.time + (i + 0.5) * samples.width);
      const y = height - 3 * ratio - (height - 8 * ratio) * value / most;
      if (isOpen) context.lineTo(x, y); else context.moveTo(x, y);
      isOpen = true;
    }
    context.stroke();
  });
}
