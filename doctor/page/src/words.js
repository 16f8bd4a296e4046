// How times and the model's names are put to the reader.

// The log has no zone: its local time is kept as if it were UTC, and shown so.
const MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const two = number => String(number).padStart(2, "0");
const three = number => String(number).padStart(3, "0");

export function day(t) {
  const date = new Date(t);
  return `${date.getUTCFullYear()}/${two(date.getUTCMonth() + 1)}/${two(date.getUTCDate())}`;
}

// "20 Nov"
export function shortDay(t) {
  const date = new Date(t);
  return `${date.getUTCDate()} ${MONTHS[date.getUTCMonth()]}`;
}

const DAYS = ["Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"];
export const weekday = t => DAYS[new Date(t).getUTCDay()];
export const longDay = t => `${weekday(t)}, ${shortDay(t)} ${new Date(t).getUTCFullYear()}`;

export function clock(t, milliseconds = true) {
  const date = new Date(t);
  const seconds = `${two(date.getUTCHours())}:${two(date.getUTCMinutes())}:${two(date.getUTCSeconds())}`;
  return milliseconds ? `${seconds}.${three(date.getUTCMilliseconds())}` : seconds;
}

export const moment = t => (t === null || t === undefined ? "" : `${day(t)} ${clock(t)}`);

// "2026/11/20 08:00:01.000 to 08:05:00.000", the second day only where it is another.
export function period(from, until) {
  if (until === from) return moment(from);
  return `${moment(from)} to ${day(from) === day(until) ? clock(until) : moment(until)}`;
}

export function duration(milliseconds) {
  if (milliseconds < 1000) return `${Math.round(milliseconds)} ms`;
  const units = [["d", 86400000], ["h", 3600000], ["min", 60000], ["s", 1000]];
  const first = units.findIndex(([, size]) => milliseconds >= size);
  const [name, size] = units[first];
  const whole = Math.floor(milliseconds / size);
  if (first === units.length - 1) return `${(milliseconds / 1000).toFixed(1)} s`;
  const [nextName, nextSize] = units[first + 1];
  const rest = Math.floor((milliseconds - whole * size) / nextSize);
  return rest ? `${whole} ${name} ${rest} ${nextName}` : `${whole} ${name}`;
}

export const number = value => value.toLocaleString("en-US");

export const plural = (count, one, many) => `${number(count)} ${count === 1 ? one : many}`;

const stateWords = {"no-address": "no address", unknown: "not known", slept: "asleep at some time"};
export const stateWord = state => stateWords[state] || state;

const whoWords = {user: "the user", service: "the service", windows: "Windows", unknown: "not known by whom"};
export const whoWord = who => whoWords[who] || who;

export const byWhom = who => (who in whoWords && who !== "unknown" ? `By ${whoWords[who]}` : "Not known by whom");

// The letter in the sign of who acted; signs differ in their shape, too.
const whoLetters = {user: "U", service: "S", windows: "W", unknown: "?"};
export const whoLetter = who => whoLetters[who] || "?";

const severities = {
  well: {sign: "\u2713", word: "All well"},
  note: {sign: "i", word: "Note"},
  warning: {sign: "!", word: "Warning"},
  fault: {sign: "\u2715", word: "Fault"},
  unknown: {sign: "?", word: "Cannot be told"},
};
export const severity = name => severities[name] || severities.unknown;

const subjects = {wifi: "Wi-Fi", wwan: "Mobile broadband", service: "Service", log: "Log"};
export const subjectWord = subject => subjects[subject] || subject;
