// Tables below the plots: totals of the whole recording, and missing samples.

function table(heads, rows, className) {
  return element("div", { className: "scroll" }, element("table", { className },
    element("thead", null, element("tr", null, ...heads.map(head => element("th", { scope: "col", text: head })))),
    element("tbody", null, ...rows)));
}

const cell = (text, className) => element("td", { className, text });

function counterCells(field, one) {
  return [cell((one.unknown ? "≥ " : "") + wholeNumber(one.total), "number"), cell(withUnit(one.mean, field), "number"),
    cell(withUnit(one.highest, field), "number"), cell(one.unknown ? wholeNumber(one.unknown) : "0", "number" + (one.unknown ? " bad" : ""))];
}

function gaugeCells(field, one) {
  const p99 = one.band ? Math.max(...one.band.p99.map(value => value ?? -Infinity)) : one.max;
  return [cell(shortNumber(one.min), "number"), cell(shortNumber(one.mean), "number"), cell(shortNumber(p99), "number"),
    cell(shortNumber(one.max), "number")];
}

function rowsOf(device, field, cells) {
  const amounts = field.series.map(one => amountOf(field, one));
  const sum = amounts.reduce((one, other) => one + other, 0);
  return field.series.map((one, i) => element("tr", null,
    i === 0 ? element("th", { scope: "rowgroup", rowspan: String(field.series.length), text: field.name }) : null,
    cell(device.series[one.series].name),
    ...cells(field, one),
    shareCell(field.plane && countsUp(field) && sum > 0 ? amounts[i] / sum : null, i)));
}

function shareCell(share, index) {
  if (share === null) return element("td");
  const bar = element("span", { className: "share" });
  bar.style.width = 60 * share + "px";
  bar.style.background = "currentColor";
  return element("td", { className: "sharecell" }, bar, element("span", { text: percent(share) }));
}

function totals(device) {
  const counters = device.fields.filter(countsUp);
  const others = device.fields.filter(field => !countsUp(field));
  const parts = [element("h2", { text: "Totals of " + (device.name || "(no name)") })];
  if (counters.length)
    parts.push(table(["counter", "of", "total", "mean", "highest step", "unknown steps", "share"],
      counters.flatMap(field => rowsOf(device, field, counterCells))));
  if (others.length)
    parts.push(table(["gauge", "of", "least", "mean", "highest p99", "highest", ""],
      others.flatMap(field => rowsOf(device, field, gaugeCells))));
  if (counters.some(field => field.series.some(one => one.unknown)))
    parts.push(element("p", { className: "note", text: "≥: some steps are not known, so the total is a lower bound." }));
  return element("section", { className: "totals" }, ...parts);
}

const SHOWN_ENTRIES = 50;

function missing(device) {
  const causes = recording.causes.map((cause, i) => [cause, device.missing[i]]).filter(([, count]) => count > 0);
  const entries = recording.missing.entries.filter(one => one.device === device.name);
  if (causes.length === 0 && !device.failure) return null;
  const text = causes.map(([cause, count]) => wholeNumber(count) + " " + cause.text).join("; ");
  const parts = [element("h2", { text: "Missing samples of " + (device.name || "(no name)") }),
    element("p", { text: text + (device.failure ? "; last failure: " + device.failure : "") })];
  if (entries.length)
    parts.push(table(["between", "and", "cause", "samples", "reason"], entries.slice(0, SHOWN_ENTRIES).map(one =>
      element("tr", null, cell(timeText(toMs(one.from), 0)), cell(timeText(toMs(one.to), 0)),
        cell(recording.causes.find(cause => cause.name === one.cause).text), cell(wholeNumber(one.samples), "number"),
        cell(one.reason)))));
  const more = entries.length - SHOWN_ENTRIES;
  if (more > 0 || recording.missing.leftOut > 0)
    parts.push(element("p", { className: "note", text: "The first entries; the counts above are complete." }));
  return element("section", { className: "missing" }, ...parts);
}

// The fields that have no plot.
function still(device) {
  const fields = device.fields.filter(field => field.chart === undefined);
  if (fields.length === 0) return null;
  return element("p", { className: "still" }, element("b", { text: "Did not move: " }), element("span", {
    text: fields.map(field => field.name + (countsUp(field) ? "" : " (" + shortNumber(field.series[0].mean) + ")") +
      (field.plane ? ", planes" : "")).join(" · ") }));
}
