"use strict";
// Numbers, times and elements. Texts of the recording reach the page only through textContent.

const PREFIXES = [[1e15, "P"], [1e12, "T"], [1e9, "G"], [1e6, "M"], [1e3, "k"]];

// Three to four digits: "12.3k", "0.125".
function shortNumber(value) {
  if (value === null || value === undefined || Number.isNaN(value)) return "–";
  const size = Math.abs(value);
  for (const [factor, sign] of PREFIXES)
    if (size >= factor * 0.9995) return digits(value / factor) + sign;
  return digits(value);
}

function digits(value) {
  const size = Math.abs(value);
  if (size === 0) return "0";
  if (size >= 0.001) return String(Number(value.toFixed(size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3)));
  return value.toExponential(1);
}

const wholeNumber = text => String(text).replace(/\B(?=(\d{3})+(?!\d))/g, " ");
const plural = (count, word) => wholeNumber(count) + " " + word + (Number(count) === 1 ? "" : "s");
const percent = part => (part > 0 && part < 0.01 ? "<1" : Math.round(100 * part)) + " %";
const countsUp = field => field.kind === "counter" || field.kind === "increase";

function unitOf(field) {
  return countsUp(field) ? field.unit + "/s" : field.unit;
}

// "12.3 MB/s", "12.3M/s" or "12.3".
function withUnit(value, field) {
  const unit = unitOf(field);
  const [, number, prefix] = /^(.*?)([PTGMk]?)$/.exec(shortNumber(value));
  return unit.startsWith("B") ? number + " " + prefix + unit : number + prefix + unit;
}

function duration(ms) {
  if (ms < 1) return shortNumber(ms * 1000) + " µs";
  if (ms < 1000) return shortNumber(ms) + " ms";
  if (ms < 120e3) return digits(ms / 1000) + " s";
  if (ms < 7200e3) return digits(ms / 60e3) + " min";
  if (ms < 172800e3) return digits(ms / 3600e3) + " h";
  return digits(ms / 86400e3) + " days";
}

const clock = { utc: true };
const two = number => String(number).padStart(2, "0");

// The parts of a time in the chosen zone. `ms` may have a fraction.
function partsOf(ms) {
  const date = new Date(Math.floor(ms + 1e-6));
  if (Number.isNaN(date.getTime())) return { day: "?", time: shortNumber(ms / 1000) + " s", ms: "" };  // no calendar has it
  const shifted = clock.utc ? date : new Date(date.getTime() - date.getTimezoneOffset() * 60e3);
  const text = shifted.toISOString();
  return { day: text.slice(0, 10), time: text.slice(11, 19), ms: text.slice(20, 23) };
}

function zoneName() {
  if (clock.utc) return "UTC";
  const minutes = -new Date(recording.from / 1000).getTimezoneOffset();
  const size = Math.abs(minutes);
  return "UTC" + (minutes < 0 ? "−" : "+") + two(Math.floor(size / 60)) + ":" + two(size % 60);
}

// With as many digits as the span needs.
function timeText(ms, span) {
  const parts = partsOf(ms);
  return parts.day + " " + parts.time + (span < 600e3 ? "." + parts.ms : "");
}

function tickText(ms, step) {
  const parts = partsOf(ms);
  if (step >= 86400e3) return parts.day;
  if (step >= 60e3) return parts.time.slice(0, 5);
  return step >= 1000 ? parts.time : parts.time + "." + parts.ms;
}

// An element; a text is never markup.
function element(tag, properties, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties || {})) {
    if (value === undefined || value === null) continue;
    if (name === "text") made.textContent = value;
    else if (name.startsWith("on")) made.addEventListener(name.slice(2), value);
    else if (name === "className" || name === "hidden") made[name] = value;
    else made.setAttribute(name, value);
  }
  made.append(...children.filter(child => child !== null && child !== undefined));
  return made;
}

const recording = JSON.parse(document.getElementById("recording").textContent);
