// Colours. The lines have the palette of Okabe and Ito, in an order that suits the background; a line
// is also told by its dashes and by its label.

const PALETTE = {
  light: ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9", "#000000", "#7a7a7a"],
  dark: ["#56b4e9", "#e69f00", "#009e73", "#cc79a7", "#d55e00", "#f0e442", "#ffffff", "#a0a0a0"],
};
const DASHES = [[], [9, 4], [3, 3], [12, 3, 3, 3], [6, 2, 2, 2], [2, 4], [16, 4], [4, 8]];

const theme = {
  choice: "auto",  // or light, or dark
  printing: false,
  system: matchMedia("(prefers-color-scheme: dark)"),
  get name() {
    if (theme.printing) return "light";
    if (theme.choice !== "auto") return theme.choice;
    return theme.system.matches ? "dark" : "light";
  },
  apply() {
    document.documentElement.dataset.theme = theme.name;
    theme.values = {};
  },
  values: {},
  // A colour of page.css.
  get(name) {
    return theme.values[name] ??=
      getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
  },
};

const lineColor = index => PALETTE[theme.name][index % PALETTE.light.length];
const lineDash = index => DASHES[(index + Math.floor(index / PALETTE.light.length)) % DASHES.length];

function transparent(color, part) {
  return color + Math.round(255 * part).toString(16).padStart(2, "0");
}

// A piece of a line as it is drawn, for a legend.
function swatch(index) {
  const canvas = element("canvas", { className: "swatch", width: 48, height: 12 });
  canvas.draw = () => {
    const context = canvas.getContext("2d");
    context.clearRect(0, 0, 48, 12);
    context.strokeStyle = lineColor(index);
    context.lineWidth = 4;
    context.setLineDash(lineDash(index).map(length => 2 * length));
    context.beginPath();
    context.moveTo(0, 6);
    context.lineTo(48, 6);
    context.stroke();
  };
  canvas.draw();
  return canvas;
}
