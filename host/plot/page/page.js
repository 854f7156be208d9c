// The page as a whole: the view, the chosen adapter, keys, theme and print.

const busy = { count: 0 };

// The part of the recording that the plots show, in milliseconds since 1970.
const view = {
  first: 0, last: 1, from: 0, to: 1,

  init() {
    const pad = Math.max(toMs(recording.interval), (recording.to - recording.from) / 1e3 * 0.002);
    view.first = view.from = toMs(recording.from) - pad;
    view.last = view.to = toMs(recording.to) + pad;
  },
  set(from, to) {
    const least = Math.max(0.002, 6 * toMs(recording.interval));
    const whole = view.last - view.first;
    const span = Math.min(whole, Math.max(least, to - from));
    const middle = (from + to) / 2;
    const begin = Math.min(Math.max(view.first, to - from < least ? middle - span / 2 : from), view.last - span);
    view.from = begin;
    view.to = begin + span;
    page.viewChanged();
  },
  reset: () => view.set(view.first, view.last),
  zoom(factor, middle = (view.from + view.to) / 2) {
    view.set(middle - (middle - view.from) * factor, middle + (view.to - middle) * factor);
  },
  pan(part) {
    const step = part * (view.to - view.from);
    const move = Math.max(view.first - view.from, Math.min(view.last - view.to, step));
    view.set(view.from + move, view.to + move);
  },
};

function cursorTime(ms, width) {
  page.cursor.textContent = ms === null ? "" : timeText(ms, 0) + " " + zoneName() + (width >= 1 ? "  ± " + duration(width / 2) : "");
}

const KEYS = [
  ["←  →", "pan"], ["+  −", "zoom"], ["0", "whole recording"], ["[  ]", "adapter"], ["u", "UTC or local"], ["t", "theme"],
  ["p", "print"],
];

const page = {
  device: -1,
  cards: [],
  filter: "",

  build() {
    document.title = recording.title;
    page.cursor = element("output", { className: "cursor" });
    page.range = element("output", { className: "range" });
    page.zone = element("button", { type: "button", onclick: page.switchZone, title: "UTC or local time (u)" });
    page.theme = element("button", { type: "button", onclick: page.switchTheme, title: "light or dark (t)" });
    const begin = toMs(recording.from);
    const facts = [recording.source, "on " + recording.host,
      duration(toMs(recording.to) - begin), recording.interval ? "every " + duration(toMs(recording.interval)) : ""];
    page.main = element("main");
    page.search = element("input", { type: "search", placeholder: "filter counters", "aria-label": "filter counters",
      oninput: () => page.applyFilter() });
    document.body.append(
      element("div", { className: "top" },
        element("header", { className: "head" },
          element("div", null, element("h1", { text: recording.title }),
            element("p", { className: "facts", text: facts.filter(Boolean).join(" · ") })),
          element("div", { className: "controls" }, page.zone, page.theme,
            element("button", { type: "button", onclick: page.print, text: "Print", title: "print (p)" }))),
        element("div", { className: "strip" }, timeline.build(),
          element("div", { className: "times" }, page.range, page.cursor,
            element("span", { className: "zoomers" },
              page.button("−", "zoom out (−)", () => view.zoom(2)),
              page.button("+", "zoom in (+)", () => view.zoom(0.5)),
              page.button("◀", "pan left (←)", () => view.pan(-0.5)),
              page.button("▶", "pan right (→)", () => view.pan(0.5)),
              page.button("⟲ all", "whole recording (0)", view.reset))))),
      page.main,
      element("footer", null,
        element("p", { text: "Files: " + recording.files.join(", ") + " · written by " + recording.writer +
          " · one point stands for at least " + duration(toMs(recording.width)) }),
        ...recording.notes.map(note => element("p", { className: "bad", text: "⚠ " + note }))));
    if (recording.notes.length) page.main.append(element("p", { className: "warning", text: "⚠ " + recording.notes[0] +
      (recording.notes.length > 1 ? " (and " + (recording.notes.length - 1) + " more notes at the end of the page)" : "") }));
    if (recording.devices.length === 0) {
      page.main.append(element("p", { className: "empty", text: "The recording has no samples." }));
      return;
    }
    page.detail = element("section", { className: "detail" });
    page.main.append(overview.build(),
      element("p", { className: "keys" }, ...KEYS.flatMap(([keys, text]) =>
        [element("kbd", { text: keys }), element("span", { text: text })]), element("span", { text: "drag: zoom · double click: whole recording" })),
      page.detail);
  },

  button: (text, title, onclick) => element("button", { type: "button", text, title, onclick }),

  select(index) {
    if (index < 0 || index >= recording.devices.length || index === page.device) return;
    page.device = index;
    page.cards.forEach(card => card.destroy());
    page.observer.disconnect();
    overview.select(index);
    const device = recording.devices[index];
    const charts = device.fields.filter(field => field.chart !== undefined);
    page.cards = charts.map(field => new Card(index, field));
    const first = comparedField(device);
    page.cards.sort((one, other) => (other.field === first) - (one.field === first));
    const planes = page.cards.filter(card => card.field.plane);
    const own = page.cards.filter(card => !card.field.plane);
    page.detail.replaceChildren(
      element("div", { className: "detailhead" }, element("h2", { text: device.name || "(no name)" }), stateOf(device),
        page.search),
      markLegend(),
      ...page.group("Planes", planes), ...page.group("The adapter itself", own),
      ...[still(device), totals(device), missing(device)].filter(Boolean));
    for (const card of page.cards) {
      card.root.card = card;
      page.observer.observe(card.root);
    }
    page.applyFilter();
    page.work(timeline.load(index));
    page.remember();
  },

  group(title, cards) {
    if (cards.length === 0) return [];
    return [element("h3", { className: "group", text: title }),
      element("div", { className: "cards" }, ...cards.map(card => card.root))];
  },

  applyFilter() {
    const wanted = page.search.value.toLowerCase();
    for (const card of page.cards) card.root.hidden = !card.field.name.toLowerCase().includes(wanted);
  },

  // Cards are drawn when they come into sight.
  observer: new IntersectionObserver(entries => {
    for (const entry of entries) {
      const { card } = entry.target;
      card.isVisible = entry.isIntersecting;
      if (card.isVisible) page.work(card.update());
    }
  }, { rootMargin: "300px" }),

  work(promise) {
    ++busy.count;
    promise.catch(error => page.main.append(element("p", { className: "warning", text: "⚠ " + error })))
      .finally(() => --busy.count);
  },

  viewChanged() {
    for (const card of page.cards) if (card.isVisible) page.work(card.update());
    timeline.draw();
    page.showRange();
    clearTimeout(page.remembering);
    page.remembering = setTimeout(page.remember, 300);
  },

  showRange() {
    const span = view.to - view.from;
    page.range.textContent = timeText(view.from, span) + " to " + timeText(view.to, span) + " " + zoneName() + " · " + duration(span);
    page.zone.textContent = clock.utc ? "UTC" : "Local";
    page.theme.textContent = { auto: "◐ auto", light: "☀ light", dark: "☾ dark" }[theme.choice];
  },

  redrawAll() {
    theme.apply();
    tiles.clear();
    for (const card of page.cards) card.redraw();
    overview.sparks.forEach(spark => spark.draw());
    document.querySelectorAll("canvas.mark").forEach(mark => mark.draw());
    timeline.draw();
    page.showRange();
  },

  switchZone() {
    clock.utc = !clock.utc;
    page.redrawAll();
  },

  switchTheme() {
    const choices = ["auto", "light", "dark"];
    theme.choice = choices[(choices.indexOf(theme.choice) + 1) % choices.length];
    page.redrawAll();
  },

  // All cards are drawn before the browser prints.
  async print() {
    await Promise.all(page.cards.map(card => card.update()));
    window.print();
  },

  // The view becomes part of the address, so that it can be passed on.
  remember() {
    const whole = view.from <= view.first && view.to >= view.last;
    const text = "adapter=" + encodeURIComponent(page.device) + (whole ? "" : "&from=" + view.from.toFixed(3) + "&to=" + view.to.toFixed(3));
    try {
      history.replaceState(null, "", "#" + text);
    } catch {}  // some addresses cannot be changed
  },

  recall() {
    const given = new URLSearchParams(location.hash.slice(1));
    const [from, to] = [Number(given.get("from")), Number(given.get("to"))];
    if (from > 0 && to > from) view.set(from, to);
    return Math.min(recording.devices.length - 1, Math.max(0, Math.floor(Number(given.get("adapter")) || 0)));
  },

  press(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || event.target === page.search) return;
    const actions = {
      ArrowLeft: () => view.pan(-0.25), ArrowRight: () => view.pan(0.25),
      "+": () => view.zoom(0.5), "=": () => view.zoom(0.5), "-": () => view.zoom(2),
      0: view.reset, Home: view.reset, Escape: view.reset,
      "[": () => page.select(page.device - 1), "]": () => page.select(page.device + 1),
      u: page.switchZone, t: page.switchTheme, p: page.print,
    };
    const action = actions[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  },

  start() {
    theme.apply();
    view.init();
    page.build();
    page.showRange();
    if (recording.devices.length) page.select(page.recall());
    addEventListener("keydown", page.press);
    addEventListener("resize", () => page.cards.forEach(card => card.resize()));
    theme.system.addEventListener("change", page.redrawAll);
    addEventListener("beforeprint", () => page.preparePrint(true));
    addEventListener("afterprint", () => page.preparePrint(false));
    matchMedia("print").addEventListener("change", event => page.preparePrint(event.matches));
  },

  // Canvases do not follow the style of the print.
  preparePrint(isPrinting) {
    if (theme.printing === isPrinting) return;
    theme.printing = isPrinting;
    document.documentElement.classList.toggle("printing", isPrinting);
    page.redrawAll();
    page.cards.forEach(card => card.resize());
  },
};

page.start();

// For tests: what the page does and shows.
window.tevPage = {
  isIdle: () => busy.count === 0,
  view, page, recording, theme,
};
