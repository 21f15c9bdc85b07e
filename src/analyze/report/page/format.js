// Numbers and names for people, in the words of the command line.

/** A duration of whole microseconds in the unit that a person would choose. */
export function duration(microseconds) {
  if (microseconds < 0) return "-" + duration(-microseconds);
  if (microseconds === 0) return "0";
  if (microseconds < 1000) return `${microseconds} µs`;
  if (microseconds < 999500) return `${threeDigits(microseconds / 1e3)} ms`;
  if (microseconds < 99950000) return `${threeDigits(microseconds / 1e6)} s`;
  const seconds = Math.round(microseconds / 1e6);
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ${seconds % 60} s`;
  return `${Math.floor(seconds / 3600)} h ${Math.floor((seconds % 3600) / 60)} min`;
}

function threeDigits(value) {
  if (value < 9.995) return value.toFixed(2);
  return value.toFixed(value < 99.95 ? 1 : 0);
}

/** "1 plugin", "1,200 plugins". */
export function counted(count, noun) {
  return `${count.toLocaleString("en")} ${noun}${count === 1 ? "" : "s"}`;
}

/** A share between 0 and 1. */
export function percent(share) {
  return `${Math.round(100 * share)} %`;
}

// Control characters, and those that change the direction of what stands around them.
const CONTROLS = /\p{Cc}/gu;
const DIRECTIONS = /[\u200e\u200f\u202a-\u202e\u2066-\u2069]/g;

const codeOf = (character, digits) => character.charCodeAt(0).toString(16).padStart(digits, "0");

/** A text of any characters on one line, with "\xNN" and "\uNNNN" for what would not be seen. */
export function printable(text) {
  return text
    .replace(CONTROLS, (character) => "\\x" + codeOf(character, 2))
    .replace(DIRECTIONS, (character) => "\\u" + codeOf(character, 4));
}
