// Pulsebar's sun and moon calculations against two implementations nobody here wrote: suncalc 1.9.0
// (the same classic algorithm, so the figures agree to the millisecond; its event names differ) and,
// more loosely, astronomy-engine (a precise ephemeris, to catch a wrong time zone or day boundary).
// Usage: node oracle.test.mjs PATH-TO-sky_values
import { execFileSync } from "node:child_process";
import SunCalc from "suncalc";
import * as Astronomy from "astronomy-engine";

const tool = process.argv[2];
const HOUR = 3600, DAY = 86400;
// SunCalc dates the phases by conjunction in right ascension with a low-precision moon: hours off.
const phaseTolerance = Number(process.env.PHASE_TOLERANCE ?? 8 * HOUR);

// The blue hour is Pulsebar's own row; suncalc learns it through its public addTime.
SunCalc.addTime(-4, "blueHourEnd", "blueHourStart");
const names = {
  sunrise: "sunrise", sunset: "sunset", dawn: "civilDawn", dusk: "civilDusk",
  nauticalDawn: "nauticalDawn", nauticalDusk: "nauticalDusk", nightEnd: "astronomicalDawn",
  night: "astronomicalDusk", goldenHourEnd: "goldenHourEnd", goldenHour: "goldenHourStart",
  blueHourEnd: "blueHourEnd", blueHourStart: "blueHourStart",
};

const places = [
  ["Berlin", 52.52, 13.405, "Europe/Berlin"], ["New York", 40.7128, -74.006, "America/New_York"],
  ["Sydney", -33.8688, 151.2093, "Australia/Sydney"], ["Quito", -0.1807, -78.4678, "America/Guayaquil"],
  ["Tokyo", 35.6762, 139.6503, "Asia/Tokyo"], ["Honolulu", 21.3069, -157.8583, "Pacific/Honolulu"],
  ["Cape Town", -33.9249, 18.4241, "Africa/Johannesburg"], ["Reykjavik", 64.1466, -21.9426, "Atlantic/Reykjavik"],
  ["Tromsø", 69.6492, 18.9553, "Europe/Oslo"], ["Longyearbyen", 78.2232, 15.6267, "Arctic/Longyearbyen"],
  ["McMurdo", -77.846, 166.676, "Antarctica/McMurdo"], ["Ushuaia", -54.8019, -68.303, "America/Argentina/Ushuaia"],
  ["Anchorage", 61.2181, -149.9003, "America/Anchorage"], ["Date line", 10, 179.9, "Pacific/Tarawa"],
];
// Dates over four years, at hours that walk through the day, including both solstices.
const dates = [];
for (let year = 2024; year <= 2027; ++year)
  for (let month = 0; month < 12; ++month)
    dates.push(Date.UTC(year, month, month === 5 || month === 11 ? 21 : 1 + ((year * 7 + month * 5) % 27),
                        (month * 5 + year) % 24, (month * 13) % 60) / 1000);

const cases = [];
for (const [name, lat, lon, zone] of places)
  for (const t of dates) cases.push({ name, t, lat, lon, zone: "UTC", localZone: zone });
// Moon times over a local calendar day: this process runs in TZ=America/New_York.
for (const t of dates) cases.push({ name: "New York local", t, lat: 40.7128, lon: -74.006, zone: "America/New_York", local: true });

const ours = JSON.parse(execFileSync(tool, { input: JSON.stringify(cases), maxBuffer: 64 << 20 }).toString());
let failures = 0, checks = 0;
function fail(c, what) {
  if (++failures <= 40) console.error(`FAIL ${c.name} ${new Date(c.t * 1000).toISOString()}: ${what}`);
}
function near(c, what, mine, theirs, tolerance) {
  ++checks;
  if (!(Math.abs(mine - theirs) <= tolerance)) fail(c, `${what}: ours ${mine}, theirs ${theirs}`);
}
const seconds = (date) => date.getTime() / 1000;

cases.forEach((c, i) => {
  const o = ours[i], date = new Date(c.t * 1000);
  const times = SunCalc.getTimes(date, c.lat, c.lon);
  near(c, "solar noon", o.solarNoon, seconds(times.solarNoon), 0.002);
  const expected = {};
  for (const [theirName, ourName] of Object.entries(names))
    if (!isNaN(times[theirName])) expected[ourName] = seconds(times[theirName]);
  ++checks;
  if (Object.keys(expected).sort().join() !== Object.keys(o.events).sort().join())
    fail(c, `events ours [${Object.keys(o.events).sort()}], theirs [${Object.keys(expected).sort()}]`);
  for (const [event, time] of Object.entries(expected))
    if (event in o.events) near(c, event, o.events[event], time, 0.002);

  const sun = SunCalc.getPosition(date, c.lat, c.lon);
  near(c, "sun azimuth", o.sunAzimuth, sun.azimuth, 1e-9);
  near(c, "sun altitude", o.sunAltitude, sun.altitude, 1e-9);
  const moon = SunCalc.getMoonPosition(date, c.lat, c.lon);
  near(c, "moon azimuth", o.moonAzimuth, moon.azimuth, 1e-9);
  near(c, "moon altitude", o.moonAltitude, moon.altitude, 1e-9);
  near(c, "moon distance", o.moonDistance, moon.distance, 1e-6);
  const light = SunCalc.getMoonIllumination(date);
  near(c, "moon fraction", o.moonFraction, light.fraction, 1e-9);
  near(c, "moon phase", o.moonPhase, light.phase, 1e-9);

  const moonTimes = SunCalc.getMoonTimes(date, c.lat, c.lon, !c.local);
  for (const [key, mine] of [["rise", o.moonrise], ["set", o.moonset]]) {
    ++checks;
    if ((moonTimes[key] === undefined) !== (mine === null)) fail(c, `moon ${key}: ours ${mine}, theirs ${moonTimes[key]}`);
    else if (mine !== null) near(c, `moon ${key}`, mine, seconds(moonTimes[key]), 0.002);
  }

  // The next new and full moon: the phase passes 0 and 0.5 within a minute of the instants given,
  // within one synodic month, and within eight hours of the precise ephemeris (SunCalc's moon is
  // a low-precision one).
  for (const [label, at, before, after, angle] of [
    ["new moon", o.nextNewMoon, (p) => p > 0.5, (p) => p < 0.5, 0],
    ["full moon", o.nextFullMoon, (p) => p < 0.5, (p) => p >= 0.5, 180]]) {
    ++checks;
    const early = SunCalc.getMoonIllumination(new Date((at - 60) * 1000)).phase;
    const late = SunCalc.getMoonIllumination(new Date((at + 60) * 1000)).phase;
    if (!(at > c.t && at - c.t < 29.9 * DAY && before(early) && after(late)))
      fail(c, `${label} at ${new Date(at * 1000).toISOString()}: phase ${early} → ${late}`);
    const precise = Astronomy.SearchMoonPhase(angle, new Date((c.t - 2 * DAY) * 1000), 40);
    const candidates = [precise, Astronomy.SearchMoonPhase(angle, precise.AddDays(1), 40)];
    near(c, `${label} vs astronomy-engine`, at, Math.min(...candidates.map((d) => Math.abs(seconds(d.date) - at))) + at, phaseTolerance);
  }
});

// Sunrise and sunset of a calendar day at mid-latitudes, against astronomy-engine searching from that
// day's local solar midnight: a wrong zone or day boundary shows as an error of hours; the classic algorithm
// itself is within five minutes up to 55° of latitude.
for (const [name, lat, lon, zone] of places.filter(([, lat]) => Math.abs(lat) < 60))
  for (const t of dates) {
    const noon = Math.floor(t / DAY) * DAY + DAY / 2 - (lon / 360) * DAY;
    const [mine] = JSON.parse(execFileSync(tool, { input: JSON.stringify([{ t: noon, lat, lon, zone }]) }).toString());
    const observer = new Astronomy.Observer(lat, lon, 0);
    const from = new Date((noon - DAY / 2) * 1000);
    const rise = Astronomy.SearchRiseSet(Astronomy.Body.Sun, observer, +1, from, 1);
    const set = Astronomy.SearchRiseSet(Astronomy.Body.Sun, observer, -1, from, 1);
    const c = { name: `${name} (astronomy-engine)`, t: noon };
    near(c, "sunrise", mine.events.sunrise, seconds(rise.date), 5 * 60);
    near(c, "sunset", mine.events.sunset, seconds(set.date), 5 * 60);
  }

console.log(`${checks} checks, ${failures} failures over ${cases.length} places and dates`);
process.exit(failures === 0 ? 0 : 1);
