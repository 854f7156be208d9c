// The adapters, those with the worst planes first.

// The field by which the planes of an adapter are compared: that of its worst plane, or the first one.
function comparedField(device) {
  const charts = device.fields.filter(field => field.chart !== undefined);
  const worst = device.worst && charts.find(field => field.plane && field.name === device.worst.field);
  return worst || charts.find(field => field.plane && countsUp(field)) || charts.find(field => field.plane) || charts[0];
}

const missingOf = device => device.missing.reduce((one, other) => one + other, 0);

const amountOf = (field, one) => countsUp(field) ? Number(one.total) : one.mean;

function stateOf(device) {
  const glyph = { sampling: "●", failing: "✕", silent: "○", waiting: "…" }[device.state];
  return element("span", { className: "state " + device.state, text: glyph + " " + device.state });
}

function worstSentence(device) {
  const { worst } = device;
  if (!worst) {
    const planes = device.fields.some(field => field.plane && field.series.length > 1);
    return element("span", { className: "even", text: planes ? "✓ no plane stands out" : "no planes" });
  }
  const plane = device.series[worst.series].name;
  const what = worst.kind === "gauge" ? "highest " + worst.field : percent(worst.share) + " of " + worst.field;
  return element("span", { className: "worst" },
    element("b", { text: "▲ " + plane }),
    element("span", { text: ": " + what + ", ×" + digits(worst.imbalance) + " of the mean, for " + duration(1000 * worst.seconds) }));
}

// The planes' amounts in the whole recording, as bars with their names.
function planeBars(device, field) {
  if (!field || !field.plane) return element("span");
  const amounts = field.series.map(one => amountOf(field, one));
  const most = Math.max(...amounts);
  const text = field.name + " in the whole recording: " + field.series.map((one, i) =>
    device.series[one.series].name + " " + withUnit(amounts[i], { unit: field.unit, kind: "gauge" })).join(", ");
  const wrap = element("span", { className: "bars", title: text, role: "img", "aria-label": text });
  amounts.slice(0, 16).forEach((amount, i) => {
    const bar = element("span", { className: "bar" });
    bar.style.height = Math.max(2, Math.round(20 * (most > 0 ? amount / most : 0))) + "px";
    if (device.worst && device.worst.series === field.series[i].series) bar.classList.add("is-worst");
    wrap.append(element("span", { className: "column" }, bar,
      element("small", { text: shortName(device.series[field.series[i].series].name).slice(0, 3) })));
  });
  return wrap;
}

const overview = {
  rows: [],
  sparks: [],

  build() {
    overview.rows = recording.devices.map((device, index) => {
      const field = comparedField(device);
      const spark = element("canvas", { className: "spark", "aria-hidden": "true" });
      spark.draw = () => overview.drawSpark(spark);
      overview.sparks.push(spark);
      if (field && packedLevel(index, 0))
        samplesOf(index, field, view.first, view.last, 1024).then(samples => {
          spark.samples = samples;
          spark.draw();
        });
      const missing = missingOf(device);
      const row = element("button", { className: "adapter", type: "button", onclick: () => page.select(index) },
        element("span", { className: "rank", text: String(index + 1) }),
        element("span", { className: "name" }, element("b", { text: device.name || "(no name)" }), stateOf(device)),
        worstSentence(device),
        planeBars(device, field),
        element("span", { className: "trace" }, spark, element("small", { text: field ? field.name : "" })),
        element("span", { className: "counts" },
          element("span", { text: plural(device.samples, "sample") }),
          element("span", { className: missing ? "bad" : "", text: missing ? "⚠ " + wholeNumber(missing) + " missing" : "none missing" })));
      return row;
    });
    return element("section", { className: "overview" },
      element("h2", { text: plural(recording.devices.length, "adapter") + ", the worst plane first" }),
      element("div", { className: "adapters" }, ...overview.rows));
  },

  drawSpark(canvas) {
    if (!canvas.clientWidth || !canvas.samples) return;
    const ratio = devicePixelRatio;
    canvas.width = Math.round(canvas.clientWidth * ratio);
    canvas.height = Math.round(canvas.clientHeight * ratio);
    drawSpark(canvas.getContext("2d"), canvas.samples, time => timeline.toX(time, canvas.width), canvas.height, ratio);
  },

  select(index) {
    overview.rows.forEach((row, i) => row.setAttribute("aria-pressed", String(i === index)));
  },
};
